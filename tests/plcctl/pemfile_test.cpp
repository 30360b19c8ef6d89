#include "check/pemfile.h"

#include <gtest/gtest.h>

namespace {

using namespace plcctl::check;

struct Time
{
    const char* text; // as certificates have it
    std::int64_t seconds;
};

void PrintTo(const Time& time, std::ostream* stream)
{
    *stream << time.text;
}

class CertificateTimes : public testing::TestWithParam<Time>
{
};

TEST_P(CertificateTimes, AreSecondsSince1970)
{
    const auto& [text, seconds] = GetParam();
    const Certificate certificate(X509_new());
    ASSERT_EQ(ASN1_TIME_set_string_X509(X509_getm_notBefore(certificate.get()), text), 1);
    ASSERT_EQ(ASN1_TIME_set_string_X509(X509_getm_notAfter(certificate.get()), text), 1);
    EXPECT_EQ(notBefore(*certificate), seconds);
    EXPECT_EQ(notAfter(*certificate), seconds);
}

// Authorities are commonly good for longer than the times of 32-bit processors, which end in January 2038.
INSTANTIATE_TEST_SUITE_P(PemFile, CertificateTimes,
                         testing::Values(Time{"19700101000000Z", 0}, Time{"20010909014640Z", 1'000'000'000},
                                         Time{"20240229235959Z", 1'709'251'199}, Time{"20380119031408Z", 2'147'483'648},
                                         Time{"20500101000000Z", 2'524'608'000},
                                         Time{"99991231235959Z", 253'402'300'799}));

TEST(PemFile, ACertificateWithoutTimesEndsAtOnce)
{
    EXPECT_EQ(notAfter(*Certificate(X509_new())), 0);
}

} // namespace
