#include "checkedplant.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <QByteArray>

using namespace plcctl::check;

namespace {

constexpr char General[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<ClientConf Version="1.0">
  <General Addr="1024"/>
  <Statistics Addr="1040"/>
</ClientConf>
)";

constexpr char Brokers[] = R"(<BrokersConf Version="1.0">
  <Brokers>
    <BrokerConf ID="1" Name="plant" BrokerAddr="1088" AutoConnect="1" ConnectionInterval="5"
                IPOrURL="127.0.0.1" Port="1883" EncryptionType="0" UserName="" Password=""
                ClientID="line-1" CleanSession="1" KeepAlive="30"
                LastWillTopic="plant/offline" LastWillAddr="1152" DataType="11_31"/>
    <BrokerConf ID="2" Name="cloud" BrokerAddr="1092" AutoConnect="0" ConnectionInterval="7"
                IPOrURL="mqtt.example" Port="1884" EncryptionType="0" UserName="" Password=""
                ClientID="line-2" CleanSession="1" KeepAlive="31"
                LastWillTopic="" LastWillAddr="-1" DataType="0"/>
  </Brokers>
</BrokersConf>
)";

constexpr char Subscriptions[] = R"(<SubscriptionsConf Version="1.0">
  <Subscriptions>
    <SubscriptionConf ID="1" Name="speed" CBrokerID="1" Topic="set/speed" SubscribeAtBoot="1" QOS="1"
                      IsBuffered="0" SubAddr="8192" DataAddr="4096" DataType="8" Ent="0"
                      PayloadFormat="0" PayloadEncryption="0"/>
    <SubscriptionConf ID="2" Name="recipe" CBrokerID="1" Topic="set/recipe" SubscribeAtBoot="1" QOS="2"
                      IsBuffered="1" SubAddr="9216" DataAddr="4104" DataType="10" Ent="0"
                      PayloadFormat="1" PayloadEncryption="0">
      <DataMembers>
        <DataMember Off="0x0" DataType="8" DName="sugar" Ent="0"/>
        <DataMember Off="0x4" DataType="11_20" DName="name" Ent="0"/>
      </DataMembers>
    </SubscriptionConf>
  </Subscriptions>
</SubscriptionsConf>
)";

constexpr char Publications[] = R"(<PublicationsConf Version="1.0">
  <Publications>
    <PublicationConf ID="1" Name="level" CBrokerID="1" Topic="plant/level" PeriodicInterval="500"
                     QOS="0" RetainFlag="0" BrokerReceivedAddr="-1" DataAddr="2048" DataType="8"
                     Ent="0" PayloadFormat="0" PayloadEncryption="0"/>
    <PublicationConf ID="2" Name="batch" CBrokerID="2" Topic="plant/batch" PeriodicInterval="-1"
                     QOS="1" RetainFlag="1" BrokerReceivedAddr="3074" DataAddr="2064" DataType="10"
                     Ent="0" PayloadFormat="1" PayloadEncryption="0">
      <DataMembers>
        <DataMember Off="0x0" DataType="6" DName="number" Ent="0"/>
        <DataMember Off="0x4" DataType="4" DName="pressures" Ent="3"/>
      </DataMembers>
    </PublicationConf>
  </Publications>
</PublicationsConf>
)";

} // namespace

CheckedPlant::CheckedPlant() : m_texts{General, Brokers, Subscriptions, Publications} {}

CheckedPlant& CheckedPlant::replace(FileIndex file, std::string_view from, std::string_view to)
{
    std::string& text = m_texts.at(file);
    const std::size_t at = text.find(from);
    if (at == std::string::npos)
        ADD_FAILURE() << from << " doesn't stand in the file";
    else
        text.replace(at, from.size(), to);
    return *this;
}

CheckedPlant& CheckedPlant::setText(FileIndex file, std::string text)
{
    m_texts.at(file) = std::move(text);
    return *this;
}

Place CheckedPlant::placeOf(FileIndex file, std::string_view part) const
{
    const std::string& text = m_texts.at(file);
    const std::size_t at = text.find(part);
    if (at == std::string::npos) {
        ADD_FAILURE() << part << " doesn't stand in the file";
        return {};
    }
    const std::string ahead = text.substr(0, at);
    const std::size_t lineStart = ahead.rfind('\n') + 1; // 0 in the first line
    return {static_cast<int>(std::count(ahead.begin(), ahead.end(), '\n')) + 1, static_cast<int>(at - lineStart) + 1};
}

std::vector<Finding> CheckedPlant::findings() const
{
    Configuration configuration{{"/nowhere", std::nullopt}, {}};
    constexpr const char* Paths[] = {"/nowhere/MQTTClientConf.xml", "/nowhere/Brokers.xml",
                                     "/nowhere/Subscriptions.xml", "/nowhere/Publications.xml"};
    for (int file = 0; file < ConfigurationFiles; ++file)
        configuration.files.at(file) = {Paths[file], parseDocument(QByteArray::fromStdString(m_texts.at(file)))};
    collectEntries(configuration);
    Findings findings;
    runChecks(configuration, 1'700'000'000, findings);
    return findings.inOrder();
}

std::string linesOf(const std::vector<Finding>& findings)
{
    std::string lines;
    for (const Finding& finding : findings)
        lines += std::to_string(finding.site.file) + ":" + std::to_string(finding.site.place.line) + ":" +
                 std::to_string(finding.site.place.column) + " [" + finding.rule + "] " + finding.text + "\n";
    return lines;
}
