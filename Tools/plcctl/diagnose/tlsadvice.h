#pragma once

#include "diagnose/tlsprobe.h"

#include <string>

namespace plcctl {

struct TlsText
{
    std::string seen;
    std::string advice;
};

// What a handshake's error says, an alert of the broker included; 0 is a connection that the broker closed.
TlsText textOf(unsigned long error);

// What is the matter with the broker's chain.
TlsText textOf(const CertificateFault& fault);

} // namespace plcctl
