#include "checkedplant.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>

// Each attribute of the sample configuration, spoilt in one way after the other: no such mistake goes by unnoticed.

using namespace plcctl::check;

namespace {

constexpr const char* FileNames[] = {"MQTTClientConf.xml", "Brokers.xml", "Subscriptions.xml", "Publications.xml"};

std::string contentOf(const std::string& path)
{
    std::ifstream file(path);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

// The attributes of comments and declarations are none.
std::string withoutComments(std::string text)
{
    const std::regex comment("<!--[^]*?-->|<\\?[^]*?\\?>");
    std::string result;
    std::sregex_iterator match(text.begin(), text.end(), comment);
    std::size_t at = 0;
    for (; match != std::sregex_iterator(); ++match) {
        const auto start = static_cast<std::size_t>(match->position());
        result += text.substr(at, start - at);
        for (const char c : match->str())
            result += c == '\n' ? '\n' : ' ';
        at = start + static_cast<std::size_t>(match->length());
    }
    return result + text.substr(at);
}

CheckedPlant readSample()
{
    CheckedPlant plant;
    for (int file = 0; file < ConfigurationFiles; ++file)
        plant.setText(static_cast<FileIndex>(file),
                      withoutComments(contentOf(std::string(SAMPLE_CONFIGURATION) + FileNames[file])));
    return plant;
}

const CheckedPlant& samplePlant()
{
    static const CheckedPlant plant = readSample();
    return plant;
}

struct SampleAttribute
{
    FileIndex file;
    std::size_t at; // of its name
    std::string name;
    std::string value;
};

std::vector<SampleAttribute> attributesOf(const CheckedPlant& plant)
{
    const std::regex attribute(R"((\w+)="([^"]*)\")");
    std::vector<SampleAttribute> result;
    for (int file = 0; file < ConfigurationFiles; ++file) {
        const std::string& text = plant.text(static_cast<FileIndex>(file));
        for (std::sregex_iterator match(text.begin(), text.end(), attribute); match != std::sregex_iterator(); ++match)
            result.push_back({static_cast<FileIndex>(file), static_cast<std::size_t>(match->position()), match->str(1),
                              match->str(2)});
    }
    return result;
}

Place placeAt(const std::string& text, std::size_t at)
{
    const std::size_t lineStart = text.rfind('\n', at) + 1; // 0 in the first line
    return {static_cast<int>(std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n')) + 1,
            static_cast<int>(at - lineStart) + 1};
}

// The findings with the attribute's text, from its name to its last quote, replaced.
std::vector<Finding> findingsWith(const SampleAttribute& attribute, const std::string& replacement)
{
    CheckedPlant plant = samplePlant();
    std::string text = plant.text(attribute.file);
    constexpr std::size_t EqualsAndQuotes = 3;
    text.replace(attribute.at, attribute.name.size() + attribute.value.size() + EqualsAndQuotes, replacement);
    return plant.setText(attribute.file, text).findings();
}

template<typename IsWanted>
bool isAny(const std::vector<Finding>& findings, IsWanted isWanted)
{
    return std::any_of(findings.begin(), findings.end(), isWanted);
}

bool isNumber(const SampleAttribute& attribute)
{
    return attribute.name != "Version" && attribute.name != "IPOrURL" &&
           std::regex_match(attribute.value, std::regex("-?[0-9][0-9A-Fa-fx_]*"));
}

} // namespace

TEST(CheckSample, HasAttributesOfAllFiles)
{
    EXPECT_GT(attributesOf(samplePlant()).size(), 250U);
}

TEST(CheckSample, AnAttributeThatIsRemovedIsReportedAtItsElement)
{
    const CheckedPlant& plant = samplePlant();
    for (const SampleAttribute& attribute : attributesOf(plant)) {
        const std::string& text = plant.text(attribute.file);
        const Site element{attribute.file, placeAt(text, text.rfind('<', attribute.at))};
        EXPECT_TRUE(isAny(findingsWith(attribute, ""),
                          [&](const Finding& finding) {
                              return finding.site == element &&
                                     (finding.rule == "missing-attribute" || finding.rule == "default-taken") &&
                                     finding.text.starts_with(attribute.name + " is missing");
                          }))
            << attribute.name << " at " << element.place.line;
    }
}

TEST(CheckSample, AnAttributeThatIsMisspeltIsReportedWithItsRightName)
{
    const CheckedPlant& plant = samplePlant();
    for (const SampleAttribute& attribute : attributesOf(plant)) {
        const Site site{attribute.file, placeAt(plant.text(attribute.file), attribute.at)};
        const std::string misspelt = attribute.name.substr(0, 1) + attribute.name;
        EXPECT_TRUE(isAny(findingsWith(attribute, misspelt + "=\"" + attribute.value + "\""),
                          [&](const Finding& finding) {
                              return finding.site == site && finding.rule == "unknown-attribute" &&
                                     finding.text.find("'" + attribute.name + "'") != std::string::npos;
                          }))
            << misspelt << " at " << site.place.line;
    }
}

TEST(CheckSample, ANumberThatIsGarbledIsAnError)
{
    const CheckedPlant& plant = samplePlant();
    for (const SampleAttribute& attribute : attributesOf(plant)) {
        if (!isNumber(attribute))
            continue;
        const Site site{attribute.file, placeAt(plant.text(attribute.file), attribute.at)};
        EXPECT_TRUE(
            isAny(findingsWith(attribute, attribute.name + "=\"x" + attribute.value + "\""),
                  [&](const Finding& finding) { return finding.site == site && finding.severity == Severity::Error; }))
            << attribute.name << " x" << attribute.value << " at " << site.place.line;
    }
}
