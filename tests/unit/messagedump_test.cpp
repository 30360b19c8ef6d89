#include "bufferedtest.h"
#include "debugoutput.h"
#include "Services/mqttmanagerservices.h"

namespace {

using testing::HasSubstr;

class MessageDump : public BufferedTest
{
protected:
    ~MessageDump() override { services->SetVerboseMode(false); }

    MQTTManagerServices* services = MQTTManagerServices::instance();
};

TEST_F(MessageDump, isMadeInVerboseModeOnly)
{
    const DebugOutput output;
    arriveNumber(1);
    EXPECT_EQ(output.text(), "");
    services->SetVerboseMode(true);
    services->PrintMQTTMessageDebug(nullptr);
    EXPECT_EQ(output.text(), "");
    arrive("line/set", "abcd");
    EXPECT_NE(output.text(), "");
}

TEST_F(MessageDump, tellsDateTimeAndEveryMember)
{
    services->SetVerboseMode(true);
    const auto message = MQTTMessage::copyOf("line/é", 7, "12\n\x1b[2J\"x\"", 10);
    const DebugOutput output;
    services->PrintMQTTMessageDebug(message.get());
    EXPECT_THAT(output.text(),
                testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} .*\n"));
    EXPECT_THAT(output.text(), HasSubstr(" MQTTClientManager ** MQTTMessage members are: Guid=" +
                                         message->Guid.toStdString() + ", topicName=\"line/é\", topicLen=7, Payload="));
    EXPECT_THAT(output.text(), HasSubstr(R"(Payload="12\n\u001B[2J\"x\"", PayloadLen=10)"));
}

TEST_F(MessageDump, isMadeAtTheArrivalAndAtTheHandOver)
{
    services->SetVerboseMode(true);
    const DebugOutput output;
    arriveNumber(1);
    const std::string atArrival = output.text();
    EXPECT_THAT(atArrival, HasSubstr("Guid="));
    handOver();
    const auto guidIn = [](const std::string& text) { return text.substr(text.find("Guid="), 41); };
    EXPECT_EQ(guidIn(output.text().substr(atArrival.size())), guidIn(atArrival));
}

TEST_F(MessageDump, endsBinaryDataAtItsZeroAndLongTextAtItsLimit)
{
    services->SetVerboseMode(true);
    const DebugOutput output;
    arrive("line/set", std::string("ab\0cd", 5));
    EXPECT_THAT(output.text(), HasSubstr(R"(Payload="ab", PayloadLen=5)"));
    arrive("line/set", std::string(1'000'000, 'x'));
    EXPECT_THAT(output.text(), HasSubstr("Payload=\"" + std::string(4096, 'x') + "\", PayloadLen=1000000"));
}

} // namespace
