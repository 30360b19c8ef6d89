#include "diagnose/tlsadvice.h"

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/x509_vfy.h>

namespace plcctl {

namespace {

struct AdviceCase
{
    int code;
    const char* advice; // a part of it
};

TEST(TlsAdvice, EachFaultOfAChainHasItsAdvice)
{
    const AdviceCase cases[] = {{X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, "CAFileName"},
                                {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, "signed by itself"},
                                {X509_V_ERR_CERT_NOT_YET_VALID, "clock"},
                                {X509_V_ERR_CERT_HAS_EXPIRED, "new certificate"},
                                {X509_V_ERR_CERT_SIGNATURE_FAILURE, "another key"},
                                {X509_V_ERR_CRL_HAS_EXPIRED, "openssl s_client"}};
    for (const AdviceCase& c : cases) {
        const TlsText text = textOf(CertificateFault{c.code, 0});
        EXPECT_NE(text.advice.find(c.advice), std::string::npos) << c.code << ": " << text.advice;
        EXPECT_NE(text.seen.find("verification error " + std::to_string(c.code)), std::string::npos) << text.seen;
    }
}

TEST(TlsAdvice, AlertsOfTheBrokerAreToldAsItsRefusal)
{
    const TlsText text = textOf(ERR_PACK(ERR_LIB_SSL, 0, SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED));
    EXPECT_EQ(text.seen.find("the broker refused: "), 0U) << text.seen;
    EXPECT_NE(text.advice.find("EncryptionType 4"), std::string::npos);
}

TEST(TlsAdvice, ACertificateThatTheBrokerFindsBadMayBeTooEarlyForItsClock)
{
    const TlsText text = textOf(ERR_PACK(ERR_LIB_SSL, 0, SSL_R_SSLV3_ALERT_BAD_CERTIFICATE));
    EXPECT_NE(text.advice.find("isn't valid yet by the broker's clock"), std::string::npos) << text.advice;
}

TEST(TlsAdvice, AConnectionThatTheBrokerClosedIsNoError)
{
    EXPECT_NE(textOf(0UL).seen.find("closed the connection"), std::string::npos);
}

} // namespace

} // namespace plcctl
