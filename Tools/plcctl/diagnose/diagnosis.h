#pragma once

#include "diagnose/diagnose.h"
#include "diagnose/step.h"

#include <functional>

class ClientBroker;

namespace plcctl {

// Takes the broker step by step, and hands each step over as soon as it is done. What can't be tried since an earlier
// step failed is handed over as skipped.
void runDiagnosis(ClientBroker& broker, const DiagnoseArguments& arguments,
                  const std::function<void(const Step&)>& report);

} // namespace plcctl
