#include "checkedplant.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <ostream>

using namespace plcctl::check;

namespace {

struct Mistake
{
    const char* name;
    FileIndex file;
    std::string from; // what stands in the plant's file
    std::string to;   // the mistake
    std::string at;   // what the finding points to
    Severity severity;
    const char* rule;
    const char* words; // that its text holds
};

void PrintTo(const Mistake& mistake, std::ostream* stream)
{
    *stream << mistake.name;
}

constexpr auto Error = Severity::Error;
constexpr auto Warning = Severity::Warning;

const std::vector<Mistake> Mistakes{
    // Names
    {"MisspeltAttribute", BrokersFile, "Port=", "Prot=", "Prot=", Error, "unknown-attribute", "did you mean 'Port'?"},
    {"OtherCase", BrokersFile, "Port=", "port=", "port=", Error, "unknown-attribute", "did you mean 'Port'?"},
    {"ForeignAttribute", BrokersFile, "KeepAlive=", "Colour=\"red\" KeepAlive=", "Colour=", Warning,
     "unknown-attribute", "is no attribute of BrokerConf"},
    {"MissingAttribute", PublicationsFile, "QOS=\"0\" ", "", "<PublicationConf ID=\"1\"", Warning, "default-taken",
     "QOS is missing: the service takes 0"},
    {"MissingWillAddress", BrokersFile, "LastWillAddr=\"-1\" ", "", "<BrokerConf ID=\"2\"", Error, "missing-attribute",
     "LastWillAddr is missing: the service takes 0"},
    {"EntityOfNoMeaning", BrokersFile, "Name=\"plant\"", "Name=\"A&B;C\"", "Name=\"A&B", Error, "unknown-entity",
     "the service leaves it out"},
    {"RepeatedAttribute", BrokersFile, "Port=\"1883\"", "Port=\"1\"\tPort=\"1883\"", "Port=\"1883\"", Error,
     "repeated-attribute", "the service takes the last one"},
    {"MisspeltElement", GeneralFile, "<Statistics", "<Statistic", "<Statistic ", Error, "unknown-element",
     "did you mean 'Statistics'?"},
    {"MissingElement", GeneralFile, "<General Addr=\"1024\"/>", "", "<ClientConf", Error, "missing-element",
     "the service ends at its start"},
    {"OtherNameBehindTheFirstEntry", BrokersFile, "<BrokerConf ID=\"2\"", "<Spare ID=\"2\"", "<Spare", Warning,
     "entry-name", "is read as a BrokerConf"},
    {"OtherNameAheadOfTheFirstEntry", BrokersFile, "<BrokerConf ID=\"1\"", "<BrokrConf ID=\"1\"", "<BrokrConf", Error,
     "unknown-element", "did you mean 'BrokerConf'?"},
    {"SecondList", BrokersFile, "</Brokers>", "</Brokers><Brokers/>", "<Brokers/>", Error, "repeated-element",
     "the service takes the first alone"},
    {"OtherTopElement", PublicationsFile, "<PublicationsConf", "<PublicationConfs", "<PublicationConfs", Error,
     "top-element", "the service finds nothing in this file"},
    {"TextInAnElement", BrokersFile, "  <Brokers>", "  <Brokers>1883", "<Brokers>", Warning, "text",
     "the service reads attributes alone"},
    // Numbers
    {"NoNumber", BrokersFile, "Port=\"1883\"", "Port=\"mqtt\"", "Port=", Error, "no-number", "the service takes 0"},
    {"HexadecimalAddress", BrokersFile, "BrokerAddr=\"1092\"", "BrokerAddr=\"0x444\"", "BrokerAddr=\"0x", Error,
     "no-number", "the service takes 0"},
    {"EmptyNumber", BrokersFile, "KeepAlive=\"30\"", "KeepAlive=\"\"", "KeepAlive=\"\"", Error, "no-number",
     "KeepAlive is empty"},
    {"NegativeUnsigned", BrokersFile, "KeepAlive=\"30\"", "KeepAlive=\"-1\"", "KeepAlive=\"-1", Error, "no-number",
     "the service takes 0"},
    {"NumberOfMoreThan32Bits", SubscriptionsFile, "DataAddr=\"4096\"", "DataAddr=\"4294967296\"", "DataAddr=\"42",
     Error, "no-number", "the service takes 0"},
    {"OutOfRange", PublicationsFile, "QOS=\"0\"", "QOS=\"7\"", "QOS=\"7", Error, "out-of-range", "fail with -9"},
    {"UnknownLevel", BrokersFile, "EncryptionType=\"0\"", "EncryptionType=\"6\"", "EncryptionType=\"6", Error,
     "out-of-range", "A number above 5 is the same as 1"},
    {"FlagInWords", BrokersFile, "AutoConnect=\"1\"", "AutoConnect=\"true\"", "AutoConnect=\"t", Error, "no-number",
     "write 1 for yes"},
    {"OtherFlag", SubscriptionsFile, "IsBuffered=\"0\"", "IsBuffered=\"2\"", "IsBuffered=\"2", Warning, "flag-value",
     "any number but 0 is yes"},
    {"OffsetWithoutPrefix", SubscriptionsFile, "Off=\"0x4\"", "Off=\"4\"", "Off=\"4", Error, "offset-form", "takes 0"},
    {"OffsetInDecimalLosesDigits", SubscriptionsFile, "Off=\"0x4\"", "Off=\"1024\"", "Off=\"1024", Error, "offset-form",
     "takes 36"},
    {"OffsetThatIsNoNumber", SubscriptionsFile, "Off=\"0x4\"", "Off=\"0xg\"", "Off=\"0xg", Error, "no-number",
     "the service takes 0"},
    {"TextWithoutLength", SubscriptionsFile, "DataType=\"11_20\"", "DataType=\"11\"", "DataType=\"11\"", Error,
     "text-without-length", "write '11_20'"},
    {"TextOfLengthZero", SubscriptionsFile, "DataType=\"11_20\"", "DataType=\"11_x\"", "DataType=\"11_x", Error,
     "text-without-length", "taken as 0"},
    {"LengthOfANumber", PublicationsFile, "DataType=\"8\"", "DataType=\"8_4\"", "DataType=\"8_4", Warning,
     "ignored-length", "only texts"},
    {"UnknownType", PublicationsFile, "DataType=\"8\"", "DataType=\"13\"", "DataType=\"13", Error, "out-of-range",
     "outside 1 to 12"},
    // Identities
    {"DuplicateId", BrokersFile, "ID=\"2\"", "ID=\"1\"", "ID=\"1\" Name=\"cloud\"", Error, "duplicate-id", "line 3"},
    {"DuplicateName", PublicationsFile, "Name=\"batch\"", "Name=\"level\"", "Name=\"level\" CBrokerID=\"2\"", Warning,
     "duplicate-name", "line 3"},
    {"UnknownBroker", SubscriptionsFile, "CBrokerID=\"1\"", "CBrokerID=\"3\"", "CBrokerID=\"3", Error, "unknown-broker",
     "(1, 2)"},
    {"SubscribedBeforeItsBroker", SubscriptionsFile, "CBrokerID=\"1\"", "CBrokerID=\"2\"", "SubscribeAtBoot=", Warning,
     "subscribed-unconnected", "AutoConnect 0"},
    {"SameClientIdAtOneBroker", BrokersFile,
     R"(IPOrURL="mqtt.example" Port="1884" EncryptionType="0" UserName="" Password=""
                ClientID="line-2")",
     R"(IPOrURL="127.0.0.1" Port="1883" EncryptionType="0" UserName="" Password="" ClientID="line-1")",
     "ClientID=\"line-1\" CleanSession=\"1\" KeepAlive=\"31\"", Error, "duplicate-client-id", "line 3"},
    // Connections
    {"NoHost", BrokersFile, "IPOrURL=\"127.0.0.1\"", "IPOrURL=\"\"", "IPOrURL=\"\"", Error, "host", "is empty"},
    {"HostWithScheme", BrokersFile, "127.0.0.1", "mqtt://127.0.0.1", "IPOrURL=\"mqtt:", Error, "host", "a scheme"},
    {"HostWithPort", BrokersFile, "127.0.0.1", "127.0.0.1:1883", "IPOrURL=\"127", Error, "host", "into Port"},
    {"HostThatIsNoAddress", BrokersFile, "127.0.0.1", "999.999.999.999", "IPOrURL=\"999", Error, "host", "above 255"},
    {"PortOfTheOtherKind", BrokersFile, "Port=\"1883\"", "Port=\"8883\"", "Port=\"8883", Warning, "port-and-level",
     "nothing is encrypted"},
    {"LongClientId", BrokersFile, "line-1", std::string(250, 'x'), "ClientID=\"xx", Error, "client-id",
     "the service ends at its start"},
    {"ClientIdWithSlash", BrokersFile, "line-1", "plant/line-1", "ClientID=\"plant/", Warning, "client-id", "a path"},
    {"VariableInClientId", BrokersFile, "line-1", "line-{PLC.SN}", "ClientID=\"line-{", Warning, "variable-place",
     "in topics alone"},
    {"SessionWithoutId", BrokersFile, "ClientID=\"line-1\" CleanSession=\"1\"", "ClientID=\"\" CleanSession=\"0\"",
     "ClientID=\"\"", Warning, "session-without-id", "no session is found again"},
    {"PasswordAlone", BrokersFile, "Password=\"\"", "Password=\"x\"", "Password=\"x", Error, "password-alone",
     "write a UserName"},
    {"PasswordInClear", BrokersFile, "UserName=\"\" Password=\"\"", "UserName=\"u\" Password=\"x\"", "Password=\"x",
     Warning, "password-in-clear", "can read the password"},
    {"NoVerification", BrokersFile, "EncryptionType=\"0\"", "EncryptionType=\"1\"", "EncryptionType=\"1", Warning,
     "unverified-broker", "takes any certificate"},
    {"NoRetry", BrokersFile, "ConnectionInterval=\"5\"", "ConnectionInterval=\"0\"", "ConnectionInterval=\"0", Warning,
     "no-retry", "switches retrying off"},
    {"NoKeepAlive", BrokersFile, "KeepAlive=\"30\"", "KeepAlive=\"0\"", "KeepAlive=\"0", Warning, "no-keep-alive",
     "may count as connected for ever"},
    {"AttributeOfAnotherLevel", BrokersFile, "KeepAlive=\"30\"", "KeepAlive=\"30\" CAFileName=\"ca.pem\"",
     "CAFileName=", Warning, "ignored-attribute", "not read at EncryptionType 0, only at 2, 4, 5"},
    {"UnknownAlgorithm", BrokersFile, "EncryptionType=\"0\"",
     "EncryptionType=\"5\" CAFileName=\"c\" ClientKeyFileName=\"k\" GoogleCloudProjectID=\"p\" JWTAlgorithm=\"rs256\"",
     "JWTAlgorithm=", Error, "unknown-value", "did you mean 'RS256'?"},
    // Wills
    {"WillWithoutType", BrokersFile, "DataType=\"11_31\"", "DataType=\"0\"", "DataType=\"0\"", Error,
     "will-without-type", "its message is empty"},
    {"WillOfANumber", BrokersFile, "DataType=\"11_31\"", "DataType=\"7\"", "DataType=\"7\"", Warning, "will-type",
     "not the digits of a number"},
    {"WillOfWideCharacters", BrokersFile, "DataType=\"11_31\"", "DataType=\"12_31\"", "DataType=\"12_31\"", Warning,
     "will-type", "the first character alone"},
    {"WillWithoutTopic", BrokersFile, "LastWillTopic=\"plant/offline\"", "LastWillTopic=\"\"", "LastWillTopic=\"\"",
     Error, "will-topic", "every attempt to connect fails"},
    {"WillTopicWithWildcard", BrokersFile, "plant/offline", "plant/+/offline", "LastWillTopic=\"plant/+", Error,
     "will-topic", "wildcard"},
    {"WillTopicWithoutWill", BrokersFile, "LastWillAddr=\"1152\"", "LastWillAddr=\"-1\"", "LastWillTopic=", Warning,
     "will-without-address", "there is no will"},
    // Topics
    {"PublicationWithWildcard", PublicationsFile, "plant/level", "plant/+", "Topic=\"plant/+", Error, "wildcard",
     "goes to one topic"},
    {"PublicationWithoutTopic", PublicationsFile, "plant/level", "", "Topic=\"\"", Error, "empty-topic", "is empty"},
    {"PublicationToTheBrokersTopics", PublicationsFile, "plant/level", "$SYS/x", "Topic=\"$SYS", Error, "system-topic",
     "the broker's own"},
    {"LongTopic", PublicationsFile, "plant/level", std::string(256, 't'), "Topic=\"tt", Warning, "topic-too-long",
     "256 characters"},
    {"TopicBeyondTheStandard", SubscriptionsFile, "set/speed", std::string(65536, 't'), "Topic=\"tt", Error,
     "topic-too-long", "65535 bytes"},
    {"UnknownVariable", PublicationsFile, "plant/level", "plant/{PLC.Name}", "Topic=\"plant/{", Error,
     "unknown-variable", "did you mean '{PLC.NAME}'?"},
    {"SomethingElseInBraces", PublicationsFile, "plant/level", "plant/{shift}", "Topic=\"plant/{", Warning,
     "unknown-variable", "is no variable"},
    {"TopicWithBlank", PublicationsFile, "plant/level", "plant/level ", "Topic=\"plant/level ", Warning, "topic-blanks",
     "part of the topic"},
    {"FilterThatTheParentDoesntMatch", SubscriptionsFile, "set/speed", "set/#", "Topic=\"set/#", Warning,
     "filter-differs", "doesn't match 'set' itself here"},
    {"PlusAheadOfHash", SubscriptionsFile, "set/speed", "+/set/#", "Topic=\"+", Error, "filter-differs",
     "no wildcard here"},
    {"HashInALevel", SubscriptionsFile, "set/speed", "set/a#", "Topic=\"set/a#", Error, "filter-refused",
     "doesn't stand alone"},
    {"LevelsBehindHash", SubscriptionsFile, "set/speed", "set/#/x", "Topic=\"set/#", Error, "filter-refused",
     "behind '#'"},
    {"PlusInALevel", SubscriptionsFile, "set/speed", "set+/x", "Topic=\"set+", Error, "filter-refused",
     "doesn't stand alone"},
    {"SharedSubscription", SubscriptionsFile, "set/speed", "$share/g/set", "Topic=\"$share", Error,
     "shared-subscription", "matches nothing here"},
    {"SameFilterTwice", SubscriptionsFile, "set/recipe", "set/speed",
     "Topic=\"set/speed\" SubscribeAtBoot=\"1\" QOS=\"2\"", Warning, "duplicate-filter", "line 3"},
    // Layouts
    {"StructWithoutMembers", PublicationsFile, "DataType=\"8\"", "DataType=\"10\"", "DataType=\"10\"", Error,
     "struct-without-members", "its size is 0"},
    {"MembersOfANumber", PublicationsFile, "DataType=\"10\"", "DataType=\"7\"", "<DataMembers>", Warning,
     "ignored-members", "only a struct (10) has members"},
    {"MembersOutOfOrder", PublicationsFile, "Off=\"0x0\"", "Off=\"0x40\"", "Off=\"0x4\"", Error, "member-order",
     "list members by rising offset"},
    {"MembersThatOverlap", SubscriptionsFile, "Off=\"0x4\"", "Off=\"0x2\"", "Off=\"0x2\"", Error, "member-overlap",
     "write the offset 0x4 or more"},
    {"PublishedMembersThatOverlap", PublicationsFile, "Off=\"0x4\"", "Off=\"0x2\"", "Off=\"0x2\"", Warning,
     "member-overlap", "bytes 0 to 3"},
    {"MemberWithoutName", PublicationsFile, "DName=\"number\"", "DName=\"\"", "DName=\"\"", Error,
     "member-without-name", "the empty text"},
    {"MembersOfOneName", PublicationsFile, "DName=\"number\"", "DName=\"pressures\"", "DName=\"pressures\" Ent=\"3\"",
     Error, "duplicate-member", "sees one of them"},
    {"MemberNameWithQuote", PublicationsFile, "DName=\"number\"", "DName='a\"b'", "DName='a", Error, "member-name",
     "no valid JSON"},
    {"StructInAStruct", PublicationsFile, "DataType=\"6\"", "DataType=\"10\"", "DataType=\"10\" DName", Error,
     "struct-in-struct", "it has no data"},
    {"ArrayOfTexts", SubscriptionsFile, R"(DName="name" Ent="0")", R"(DName="name" Ent="2")", "Ent=\"2\"", Warning,
     "ignored-entries", "no arrays of texts"},
    {"SubscriptionWithAScript", SubscriptionsFile, "PayloadFormat=\"0\"", "PayloadFormat=\"2\"", "PayloadFormat=\"2",
     Error, "format-without-data", "writes nothing to the tag"},
    {"ScriptOfANumber", PublicationsFile, "PayloadFormat=\"0\"", "PayloadFormat=\"3\"", "DataType=\"8\"", Warning,
     "script-tag", "the argument of a script"},
    // Sizes
    {"RawMessageOf5001Bytes", PublicationsFile, R"(DataType="8"
                     Ent="0")",
     R"(DataType="3" Ent="5001")", "DataType=\"3\"", Error, "message-too-large", "5001 bytes"},
    {"JsonThatIsAlwaysTooLarge", PublicationsFile, "Ent=\"3\"", "Ent=\"2500\"", "DataType=\"10\"", Error,
     "message-too-large", "at least 5026 bytes"},
    {"JsonThatCanBeTooLarge", PublicationsFile, "Ent=\"3\"", "Ent=\"1000\"", "DataType=\"10\"", Warning,
     "message-too-large", "up to 7035 bytes"},
    {"TagOf1020Bytes", SubscriptionsFile, R"(DataType="8" Ent="0")", R"(DataType="8" Ent="510")", "DataType=\"8\"",
     Error, "tag-size-1020", "2040 bytes"},
    {"TagOfMoreThan16MiB", SubscriptionsFile, R"(DataType="8" Ent="0")", R"(DataType="8" Ent="4194305")",
     "DataType=\"8\"", Error, "tag-too-large", "never written"},
    // Capacity
    {"PeriodOfZero", PublicationsFile, "PeriodicInterval=\"500\"", "PeriodicInterval=\"0\"", "PeriodicInterval=\"0",
     Error, "period", "a whole core"},
    {"PeriodTooShort", PublicationsFile, "PeriodicInterval=\"500\"", "PeriodicInterval=\"1\"", "PeriodicInterval=\"1",
     Warning, "period", "isn't kept"},
    {"NegativePeriod", PublicationsFile, "PeriodicInterval=\"500\"", "PeriodicInterval=\"-2\"", "PeriodicInterval=\"-2",
     Error, "out-of-range", "nothing is ever published"},
    {"AcknowledgementThatNeverComes", PublicationsFile, R"(BrokerReceivedAddr="-1")", R"(BrokerReceivedAddr="3073")",
     "BrokerReceivedAddr=\"3073", Warning, "never-acknowledged", "at QOS 0"},
    {"LongerTagAtOneAddress", PublicationsFile, "DataAddr=\"2064\"", "DataAddr=\"2048\"",
     "DataAddr=\"2048\" DataType=\"10\"", Warning, "registered-short", "4 bytes"},
    // Tag memory
    {"TwoRecordsOverlap", GeneralFile, "Addr=\"1040\"", "Addr=\"1030\"", "Addr=\"1030\"", Error, "tag-overlap",
     "bytes 1030 to 1045"},
    {"DataOverARecord", SubscriptionsFile, "DataAddr=\"4096\"", "DataAddr=\"1086\"", "DataAddr=\"1086", Error,
     "tag-overlap", "the broker's status block in Brokers.xml, line 3"},
    {"SubscriptionsOfOneTag", SubscriptionsFile, R"(DataAddr="4104" DataType="10")", R"(DataAddr="4096" DataType="8")",
     "DataAddr=\"4096\" DataType=\"8\" Ent=\"0\"\n                      PayloadFormat=\"1\"", Warning, "tag-overlap",
     "each overwrites the other"},
    {"RecordOverALinkState", BrokersFile, "BrokerAddr=\"1092\"", "BrokerAddr=\"45\"", "BrokerAddr=\"45", Error,
     "tag-overlap", "the controller's link state"},
    {"AcknowledgementInARecord", PublicationsFile, "BrokerReceivedAddr=\"3074\"", "BrokerReceivedAddr=\"8200\"",
     "BrokerReceivedAddr=\"8200", Error, "tag-overlap", "status record"},
};

class CheckFindings : public testing::TestWithParam<Mistake>
{
};

bool isExpected(const Finding& finding, const Mistake& mistake, Place place)
{
    return finding.site == Site{mistake.file, place} && finding.severity == mistake.severity &&
           finding.rule == mistake.rule && finding.text.find(mistake.words) != std::string::npos;
}

} // namespace

TEST(CheckFindingsOfNothing, APlantWithoutMistakesHasNoFinding)
{
    EXPECT_EQ(linesOf(CheckedPlant().findings()), "");
}

// Added to such an address, the tag's size ran over; the service takes it for 0.
TEST(CheckFindingsOfHugeNumbers, AnAddressBeyondTagMemoryOverlapsNothing)
{
    for (const char* address : {"4294967296", "9223372036854775807"}) {
        CheckedPlant plant;
        for (const char* own : {"4096", "4104"})
            plant.replace(SubscriptionsFile, "DataAddr=\"" + std::string(own), "DataAddr=\"" + std::string(address));
        const std::string lines = linesOf(plant.findings());
        EXPECT_NE(lines.find("[no-number]"), std::string::npos) << lines;
        EXPECT_EQ(lines.find("[tag-overlap]"), std::string::npos) << lines;
    }
}

std::size_t countOf(const std::vector<Finding>& findings, std::string_view rule)
{
    return static_cast<std::size_t>(
        std::count_if(findings.begin(), findings.end(), [&](const Finding& finding) { return finding.rule == rule; }));
}

// A topic of "{}{}{}..." gave a line for each two characters.
TEST(CheckFindingsOfOneTopic, TellOfEachUnknownVariableOnceAndOfTenAtMost)
{
    const auto findingsWith = [](const std::string& topic) {
        return CheckedPlant().replace(PublicationsFile, "plant/level", topic).findings();
    };
    EXPECT_EQ(countOf(findingsWith("{a}{a}{PLC.NAME}{b}{a}"), "unknown-variable"), 2U);
    std::string many;
    for (int i = 0; i < 1000; ++i)
        many += "{" + std::to_string(i) + "}";
    EXPECT_EQ(countOf(findingsWith(many), "unknown-variable"), 10U);
}

// Each finding about the file repeated a name of any length.
TEST(CheckFindingsOfOneFile, ShowAPathThatCanExistAsAWholeAndCutAnyLonger)
{
    const auto textWith = [](const std::string& file) {
        const auto findings =
            CheckedPlant()
                .replace(BrokersFile, "EncryptionType=\"0\"", "EncryptionType=\"2\" CAFileName=\"" + file + "\"")
                .findings();
        const auto found = std::find_if(findings.begin(), findings.end(),
                                        [](const Finding& finding) { return finding.rule == "file"; });
        return found == findings.end() ? "no finding" : found->text;
    };
    const std::string longest(255, 'x');
    EXPECT_NE(textWith(longest).find("'/nowhere/" + longest + "' doesn't exist"), std::string::npos);
    EXPECT_LT(textWith(std::string(100'000, 'x')).size(), 1000U);
}

TEST_P(CheckFindings, PointToTheMistakeAndSayWhatBecomesOfIt)
{
    const Mistake& mistake = GetParam();
    CheckedPlant plant;
    plant.replace(mistake.file, mistake.from, mistake.to);
    const Place place = plant.placeOf(mistake.file, mistake.at);
    const auto findings = plant.findings();
    EXPECT_EQ(std::count_if(findings.begin(), findings.end(),
                            [&](const Finding& finding) { return isExpected(finding, mistake, place); }),
              1)
        << "expected at " << place.line << ":" << place.column << ", found:\n"
        << linesOf(findings);
}

INSTANTIATE_TEST_SUITE_P(Table, CheckFindings, testing::ValuesIn(Mistakes),
                         [](const auto& tested) { return std::string(tested.param.name); });
