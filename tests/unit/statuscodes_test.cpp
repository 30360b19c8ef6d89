#include "Records/statuscodes.h"
#include "unittest.h"

namespace {

TEST(StatusCodes, haveTheNumbersThatCallersFindInTags)
{
    const std::vector<int> codes{SC_AC_IN_PROGRESS,
                                 SC_AC_OK,
                                 SC_AC_ERROR_WRITE_BACK_FAILED,
                                 SC_AC_ERROR_INVALID_ID,
                                 SC_AC_ERROR_GET_CFG_FAILED,
                                 SC_AC_ERROR_NOT_PAUSED,
                                 SC_AC_ERROR_ALREADY_PAUSED,
                                 SC_AC_ERROR_PAUSED,
                                 SC_AC_ERROR_NOT_PERIODIC,
                                 SC_AC_ERROR_NOT_APERIODIC,
                                 SC_AC_ERROR_PARSE_FAILED,
                                 SC_AC_ERROR_BROKER_FAILED,
                                 SC_AC_ERROR_SUBSCRIPTION_FAILED,
                                 SC_AC_ERROR_DATA_BIG_THAN_BUFF,
                                 SC_AC_ERROR_CHANGE_STATE_FAILED,
                                 SC_AC_ERROR_CLIENT_CREATE_FAILED,
                                 SC_AC_ERROR_SYSTEM_TIME};
    EXPECT_EQ(codes, (std::vector<int>{2, 0, -1, -2, -3, -4, -5, -6, -7, -8, -9, -10, -11, -12, -13, -14, -16}));
}

TEST(StatusCodes, sameNumberMeansDifferentThingsInDifferentRecords)
{
    EXPECT_STREQ(describeCode(CodeDomain::RequestStatus, -11).name, "SC_AC_ERROR_SUBSCRIPTION_FAILED");
    EXPECT_STREQ(describeCode(CodeDomain::Broker, -11).name, "CB_CONNECT_REFUSED");
    EXPECT_STREQ(describeCode(CodeDomain::Publication, -11).name, "PSC_ERROR_NOT_PUBLISHED");
}

TEST(StatusCodes, libraryCodesPassThroughBrokersAndPublicationsOnly)
{
    EXPECT_STRNE(describeCode(CodeDomain::Broker, -1).text, "unknown code");
    EXPECT_STREQ(describeCode(CodeDomain::Publication, -9).text, describeCode(CodeDomain::Broker, -9).text);
    EXPECT_STREQ(describeCode(CodeDomain::RequestStatus, -15).text, "unknown code");
    EXPECT_STREQ(describeCode(CodeDomain::Process, -1).text, "unknown code");
}

TEST(StatusCodes, brokerRefusalsHaveATextEach)
{
    for (int code = 1; code <= 5; ++code)
        EXPECT_THAT(describeCode(CodeDomain::Broker, code).text, testing::StartsWith("refused by the broker"));
    EXPECT_STREQ(describeCode(CodeDomain::Broker, 6).text, "unknown code");
}

} // namespace
