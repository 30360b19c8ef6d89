#include "diagnose/tlsadvice.h"

#include <algorithm>
#include <array>
#include <openssl/err.h>
#include <openssl/x509_vfy.h>

namespace plcctl {

namespace {

struct Row
{
    int code;
    const char* advice;
};

constexpr char NotTls[] = "what answers doesn't speak TLS: check Port and EncryptionType";
constexpr char Versions[] = "broker and service have no version of TLS in common: give the broker TLS 1.2 or 1.3";
constexpr char OwnCertificate[] =
    "the broker doesn't accept this device's certificate: it wants one of an authority that it knows; set "
    "EncryptionType 4 with ClientCertificateFileName and ClientKeyFileName, or make the authority known to the broker";

// Reasons of OpenSSL's own; alerts of the other side have their number and 1000.
constexpr std::array Reasons{
    Row{SSL_R_WRONG_VERSION_NUMBER, NotTls},
    Row{SSL_R_PACKET_LENGTH_TOO_LONG, NotTls},
    Row{SSL_R_BAD_PACKET_LENGTH, NotTls},
    Row{SSL_R_UNSUPPORTED_PROTOCOL, Versions},
    Row{SSL_R_TLSV1_ALERT_PROTOCOL_VERSION, Versions},
    Row{SSL_R_SSLV3_ALERT_HANDSHAKE_FAILURE,
        "broker and service have no suite in common, or the broker wants a client certificate: see docs/security.md"},
    Row{SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED, OwnCertificate},
    Row{SSL_R_SSLV3_ALERT_BAD_CERTIFICATE, "the broker doesn't accept this device's certificate: commonly it isn't "
                                           "valid yet by the broker's clock, or not "
                                           "of an authority that the broker knows; the broker's log says which"},
    Row{SSL_R_SSLV3_ALERT_CERTIFICATE_UNKNOWN, OwnCertificate},
    Row{SSL_R_TLSV1_ALERT_UNKNOWN_CA, OwnCertificate},
    Row{SSL_R_SSLV3_ALERT_UNSUPPORTED_CERTIFICATE, OwnCertificate},
    Row{SSL_R_SSLV3_ALERT_CERTIFICATE_EXPIRED,
        "this device's certificate has expired, as the broker sees it: have a new one issued, or set the broker's "
        "clock"},
    Row{SSL_R_SSLV3_ALERT_CERTIFICATE_REVOKED, "this device's certificate has been revoked: have a new one issued"},
    Row{SSL_R_TLSV1_UNRECOGNIZED_NAME, "the broker knows no such name: IPOrURL has to be the name it is set up for"},
    Row{SSL_R_DH_KEY_TOO_SMALL, "the broker's key exchange is too weak: give it 2048 bits at least"},
    Row{SSL_R_EE_KEY_TOO_SMALL, "the broker's key is too weak: give it 2048 bits at least"},
};

constexpr char OtherAuthority[] =
    "the authority that signed the broker's certificate is not in CAFileName: take the certificate of the issuer that "
    "stands in the last line of the chain (level 3: of the system's store)";

constexpr std::array Faults{
    Row{X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, OtherAuthority},
    Row{X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, OtherAuthority},
    Row{X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE, OtherAuthority},
    Row{X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN, OtherAuthority},
    Row{X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT,
        "the broker's certificate is signed by itself: put this very certificate into CAFileName, or give the broker "
        "one that an authority has signed"},
    Row{X509_V_ERR_CERT_SIGNATURE_FAILURE,
        "an authority in CAFileName has the same name as the broker's and another key: take the right one"},
    Row{X509_V_ERR_CERT_HAS_EXPIRED,
        "compare the dates of the chain with this device's clock: if the clock is right, the broker needs a new "
        "certificate"},
    Row{X509_V_ERR_CERT_NOT_YET_VALID,
        "compare the dates of the chain with this device's clock, which is commonly the one that is wrong: set it"},
    Row{X509_V_ERR_INVALID_PURPOSE, "the broker's certificate is not one for servers: have another one issued"},
    Row{X509_V_ERR_INVALID_CA, "a certificate in the chain may not sign others: take the authority's own certificate"},
    Row{X509_V_ERR_EE_KEY_TOO_SMALL, "the broker's key is too weak: have a certificate with a larger key issued"},
    Row{X509_V_ERR_CA_KEY_TOO_SMALL, "the authority's key is too weak: have certificates of a stronger one issued"},
    Row{X509_V_ERR_CA_MD_TOO_WEAK, "a certificate in the chain is signed with an outdated hash: have new ones issued"},
};

template<typename Rows>
std::string adviceIn(const Rows& rows, int code, const char* otherwise)
{
    const auto* const found =
        std::find_if(rows.begin(), rows.end(), [code](const Row& row) { return row.code == code; });
    return found == rows.end() ? otherwise : found->advice;
}

} // namespace

TlsText textOf(unsigned long error)
{
    if (error == 0)
        return {"the broker closed the connection",
                "look into the broker's log; many close in silence when they want a client certificate, or when the "
                "port is not for TLS"};
    const int reason = ERR_GET_REASON(error);
    const char* text = ERR_reason_error_string(error);
    const bool isAlert = reason > SSL_AD_REASON_OFFSET && ERR_GET_LIB(error) == ERR_LIB_SSL;
    const std::string what = text ? text : "error " + std::to_string(error);
    return {(isAlert ? "the broker refused: " : "the handshake failed: ") + what,
            adviceIn(Reasons, reason, "look into the broker's log for the same moment")};
}

TlsText textOf(const CertificateFault& fault)
{
    return {"certificate " + std::to_string(fault.depth) + ": " + X509_verify_cert_error_string(fault.code) +
                " (verification error " + std::to_string(fault.code) + ")",
            adviceIn(Faults, fault.code, "openssl s_client -connect HOST:PORT -CAfile FILE tells more")};
}

} // namespace plcctl
