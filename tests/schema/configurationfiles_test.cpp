// The table of configuration attributes against the service's own parsers and records.

#include "Records/argtype.h"
#include "Records/brokerrecords.h"
#include "Records/publicationrecords.h"
#include "Records/subscriptionrecords.h"
#include "schema/configurationfiles.h"
#include "serviceparser.h"
#include "Services/mqttmanagerservices.h"
#include "Services/mqttXmlParser.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <set>

namespace {

using namespace plcctl::schema;
using ServiceParser::Texts;

constexpr int LevelsAndOneMore = 7;

bool isReadAt(const Attribute& attribute, int level)
{
    return attribute.levels == 0 || (level < 8 && (attribute.levels >> level & 1) != 0);
}

bool mayBeStruct(const Attribute& attribute)
{
    return std::ranges::find(attribute.choices, "10", &Choice::value) != attribute.choices.end();
}

// Two texts that mean different things.
std::pair<std::string, std::string> samplesOf(const Attribute& attribute)
{
    switch (attribute.form) {
    case Form::Text:
    case Form::Topic:
    case Form::FileName:
        return {"first-" + std::string(attribute.name), "second"};
    case Form::Flag:
        return {"1", "0"};
    case Form::DataType: // a struct where there may be one, so that its members are read
        return {mayBeStruct(attribute) ? "10" : "11_5", "7"};
    case Form::Offset:
        return {"0x8", "0xff"};
    default:
        return {"1", "2"};
    }
}

Texts textsOf(const ConfigurationFile& file, int level)
{
    Texts texts;
    ServiceParser::forEachElement(file.top, [&](const Element& element) {
        for (const Attribute& attribute : element.attributes)
            texts[{std::string(element.name), std::string(attribute.name)}] = samplesOf(attribute).first;
    });
    if (file.name == "Brokers.xml")
        texts[{"BrokerConf", "EncryptionType"}] = std::to_string(level);
    return texts;
}

// Calls `visit` for every attribute of every file, with its place and the texts of all others; for those of brokers at
// each level of encryption.
void forEachAttribute(const std::function<void(const ConfigurationFile&, const Attribute&, int level,
                                               const ServiceParser::Place&, const Texts&)>& visit)
{
    for (const ConfigurationFile& file : configurationFiles()) {
        for (int level = 0; level < (file.name == "Brokers.xml" ? LevelsAndOneMore : 1); ++level) {
            const Texts texts = textsOf(file, level);
            ServiceParser::forEachElement(file.top, [&](const Element& element) {
                for (const Attribute& attribute : element.attributes) {
                    SCOPED_TRACE(std::string(file.name) + " " + std::string(element.name) + " " +
                                 std::string(attribute.name) + ", level " + std::to_string(level));
                    visit(file, attribute, level, {std::string(element.name), std::string(attribute.name)}, texts);
                }
            });
        }
    }
}

auto membersWith(const ConfigurationFile& file, Texts texts, const ServiceParser::Place& place, std::string_view text)
{
    texts[place] = text;
    const auto reading = ServiceParser::read(file, texts);
    EXPECT_TRUE(reading.success);
    return reading.members;
}

auto membersWithout(const ConfigurationFile& file, Texts texts, const ServiceParser::Place& place)
{
    texts.erase(place);
    const auto reading = ServiceParser::read(file, texts);
    EXPECT_TRUE(reading.success);
    return reading.members;
}

TEST(ConfigurationTable, HoldsTheAttributesThatTheServiceReadsInThisOrder)
{
    for (const ConfigurationFile& file : configurationFiles()) {
        for (int level = 0; level < LevelsAndOneMore; ++level) {
            SCOPED_TRACE(std::string(file.name) + ", level " + std::to_string(level));
            const auto reading = ServiceParser::read(file, textsOf(file, level));
            ServiceParser::forEachElement(file.top, [&](const Element& element) {
                std::vector<std::string> expected;
                for (const Attribute& attribute : element.attributes) {
                    if (isReadAt(attribute, level))
                        expected.emplace_back(attribute.name);
                }
                EXPECT_EQ(reading.askedOf(element.name), expected) << element.name;
            });
        }
    }
}

TEST(ConfigurationTable, NamesEveryElementThatTheServiceLooksInto)
{
    for (const ConfigurationFile& file : configurationFiles()) {
        std::set<std::string> looked;
        for (const auto& [element, attribute] : ServiceParser::read(file, textsOf(file, 0)).asked)
            looked.insert(element);
        std::set<std::string> inTable;
        ServiceParser::forEachElement(file.top, [&](const Element& element) {
            if (!element.attributes.empty())
                inTable.emplace(element.name);
        });
        EXPECT_EQ(looked, inTable) << file.name;
    }
}

TEST(ConfigurationTable, AMissingAttributeIsTheValueThatItNames)
{
    forEachAttribute(
        [](const ConfigurationFile& file, const Attribute& attribute, int, const auto& place, const Texts& texts) {
            EXPECT_EQ(membersWithout(file, texts, place), membersWith(file, texts, place, attribute.whenMissing));
        });
}

TEST(ConfigurationTable, EveryAttributeHasAnEffectAtItsLevelsAndAtNoOther)
{
    forEachAttribute([](const ConfigurationFile& file, const Attribute& attribute, int level, const auto& place,
                        const Texts& texts) {
        const auto [first, second] = samplesOf(attribute);
        const bool differs = membersWith(file, texts, place, first) != membersWith(file, texts, place, second);
        EXPECT_EQ(differs, isReadAt(attribute, level));
    });
}

struct SameText
{
    Form form;
    const char* text;
    const char* means;
};

// What the service takes texts of each form for.
constexpr SameText SameTexts[] = {
    {Form::Unsigned, " 7 ", "7"},
    {Form::Unsigned, "007", "7"},
    {Form::Unsigned, "4294967296", "0"},
    {Form::Unsigned, "-1", "0"},
    {Form::Unsigned, "0x10", "0"},
    {Form::Unsigned, "1.5", "0"},
    {Form::Signed, "2147483648", "0"},
    {Form::Signed, "-2147483649", "0"},
    {Form::Signed, "seven", "0"},
    {Form::Flag, "2", "1"},
    {Form::Flag, "-1", "1"},
    {Form::Flag, "true", "0"},
    {Form::DataType, "text", "0"},
    {Form::DataType, "7_x", "7_0"},
    {Form::DataType, "11_5_6", "11_5"},
    {Form::Offset, "0X1F", "0x1f"},
    {Form::Offset, "__1f", "0x1f"},
    {Form::Offset, "16", "0x0"},
    {Form::Offset, "0x100000000", "0x0"},
    {Form::Offset, "0xg", "0x0"},
    {Form::Address, "tag", "0"},
};

TEST(ConfigurationTable, TextsAreReadAsTheirFormSays)
{
    forEachAttribute(
        [](const ConfigurationFile& file, const Attribute& attribute, int, const auto& place, const Texts& texts) {
            for (const SameText& same : SameTexts) {
                if (same.form == attribute.form) {
                    EXPECT_EQ(membersWith(file, texts, place, same.text), membersWith(file, texts, place, same.means))
                        << same.text;
                }
            }
        });
}

TEST(ConfigurationTable, AnAddressIsSignedWhereItCanBeNone)
{
    forEachAttribute(
        [](const ConfigurationFile& file, const Attribute& attribute, int, const auto& place, const Texts& texts) {
            if (attribute.form != Form::Address)
                return;
            const auto zero = membersWith(file, texts, place, "0");
            EXPECT_EQ(membersWith(file, texts, place, "-1") != zero, attribute.least == -1);
            EXPECT_EQ(membersWith(file, texts, place, "4294967295") != zero, attribute.least == 0);
        });
}

TEST(ConfigurationTable, WhatMakesSenseIsWhatTheServiceCanRead)
{
    forEachAttribute([](const ConfigurationFile&, const Attribute& attribute, int, const auto&, const Texts&) {
        const bool isUnsigned =
            attribute.form == Form::Unsigned || (attribute.form == Form::Address && attribute.least == 0);
        EXPECT_LE(attribute.least, attribute.most);
        EXPECT_GE(attribute.least, isUnsigned ? 0 : std::numeric_limits<std::int32_t>::min());
        EXPECT_LE(attribute.most, isUnsigned ? std::int64_t{std::numeric_limits<std::uint32_t>::max()}
                                             : std::int64_t{std::numeric_limits<std::int32_t>::max()});
    });
}

TEST(ConfigurationTable, TextsHaveTheirFieldInTheConfigurationRecord)
{
    const std::map<ServiceParser::Place, std::size_t> fields{
        {{"BrokerConf", "IPOrURL"}, sizeof(CBrokerConfigurationStruct::IPorUrl)},
        {{"BrokerConf", "ClientID"}, sizeof(CBrokerConfigurationStruct::ClientID)},
        {{"BrokerConf", "UserName"}, sizeof(CBrokerConfigurationStruct::Username)},
        {{"BrokerConf", "Password"}, sizeof(CBrokerConfigurationStruct::Password)},
        {{"BrokerConf", "LastWillTopic"}, sizeof(CBrokerConfigurationStruct::LastWillTopic)},
        {{"PublicationConf", "Topic"}, sizeof(PublicationConfigurationStruct::Topic)},
        {{"SubscriptionConf", "Topic"}, sizeof(SubscriptionConfigurationStruct::Topic)},
    };
    std::map<ServiceParser::Place, std::size_t> inTable;
    forEachAttribute([&](const ConfigurationFile&, const Attribute& attribute, int, const auto& place, const Texts&) {
        if (attribute.fieldSize != 0)
            inTable[place] = attribute.fieldSize;
    });
    EXPECT_EQ(inTable, fields);
}

TEST(ConfigurationTable, TypesHaveTheServicesNumbers)
{
    const Attribute& attribute =
        *findAttribute(findFile("Publications.xml")->top.children.front().children.front(), "DataType");
    ASSERT_EQ(attribute.choices.size(), 12U);
    for (const Choice& choice : attribute.choices) {
        const auto type = static_cast<ArgType>(std::stoi(std::string(choice.value)));
        EXPECT_EQ("AT_" + std::string(choice.name), MQTTManagerServices::instance()->GetTypeName(type).toStdString());
    }
}

TEST(ConfigurationTable, FormatsAndQualitiesAreThoseThatTheServiceKnows)
{
    const Element& publication = findFile("Publications.xml")->top.children.front().children.front();
    const auto mostFormat = static_cast<MQTTPayloadFormat>(findAttribute(publication, "PayloadFormat")->most);
    const auto mostQuality = static_cast<MQTTQualityOfService>(findAttribute(publication, "QOS")->most);
    const MQTTXmlParser& parser = *MQTTXmlParser::instance();
    EXPECT_EQ(parser.validatePayloadFormatValue(mostFormat), mostFormat);
    EXPECT_EQ(parser.validateQOSValue(mostQuality), mostQuality);
    EXPECT_EQ(parser.validatePayloadFormatValue(static_cast<MQTTPayloadFormat>(mostFormat + 1)), 0);
    EXPECT_EQ(parser.validateQOSValue(static_cast<MQTTQualityOfService>(mostQuality + 1)), 0);
}

TEST(ConfigurationTable, AListOfChoicesCoversTheRange)
{
    forEachAttribute([](const ConfigurationFile&, const Attribute& attribute, int, const auto&, const Texts&) {
        if (!attribute.onlyChoices || attribute.form == Form::Text)
            return;
        EXPECT_EQ(std::to_string(attribute.least), attribute.choices.front().value);
        EXPECT_EQ(std::to_string(attribute.most), attribute.choices.back().value);
    });
}

// They become parts of sentences and cells of tables.
TEST(ConfigurationTable, EverySentenceIsThereAndEndsWithoutAFullStop)
{
    const auto isPhrase = [](std::string_view text) {
        return !text.empty() && text.back() != '.' && text.find_first_of("|\n\"") == std::string_view::npos;
    };
    forEachAttribute([&](const ConfigurationFile&, const Attribute& attribute, int, const auto&, const Texts&) {
        EXPECT_TRUE(isPhrase(attribute.meaning)) << attribute.meaning;
        EXPECT_TRUE(isPhrase(attribute.mistake)) << attribute.mistake;
        for (const Choice& choice : attribute.choices)
            EXPECT_TRUE(isPhrase(choice.meaning)) << choice.meaning;
    });
    for (const ConfigurationFile& file : configurationFiles()) {
        EXPECT_TRUE(isPhrase(file.meaning)) << file.meaning;
        ServiceParser::forEachElement(
            file.top, [&](const Element& element) { EXPECT_TRUE(isPhrase(element.meaning)) << element.meaning; });
    }
}

} // namespace
