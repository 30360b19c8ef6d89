#include "deviceconfig.h"

#include "devicepaths.h"
#include "Records/argtype.h"

#include <algorithm>
#include <functional>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <QXmlStreamReader>

namespace plcctl {

namespace {

constexpr int OffsetPrefixLength = 2; // of "0x"

QString text(const QXmlStreamReader& xml, const char* attribute)
{
    return xml.attributes().value(QLatin1String(attribute)).toString();
}

std::string utf8(const QXmlStreamReader& xml, const char* attribute)
{
    return text(xml, attribute).toStdString();
}

int number(const QXmlStreamReader& xml, const char* attribute)
{
    return text(xml, attribute).toInt();
}

std::uint32_t address(const QXmlStreamReader& xml, const char* attribute)
{
    return text(xml, attribute).toUInt();
}

Attributes attributesOf(const QXmlStreamReader& xml)
{
    Attributes result;
    for (const QXmlStreamAttribute& attribute : xml.attributes())
        result.emplace(attribute.qualifiedName().toString().toStdString(), attribute.value().toString().toStdString());
    return result;
}

// The address of something that a file switches off with -1.
std::optional<std::uint32_t> optionalAddress(const QXmlStreamReader& xml, const char* attribute)
{
    const int value = number(xml, attribute);
    return value == -1 ? std::nullopt : std::optional(static_cast<std::uint32_t>(value));
}

// The attributes DataType, "7" or for texts with a length "11_20", and Ent.
ValueLayout valueLayout(const QXmlStreamReader& xml)
{
    const QStringList parts = text(xml, "DataType").split('_');
    ValueLayout result{parts.value(0).toInt(), NO_DATA_LEN, number(xml, "Ent")};
    if (parts.size() > 1)
        result.length = parts.value(1).toInt();
    return result;
}

std::int64_t unitSize(int type)
{
    switch (type) {
    case AT_BOOL:
    case AT_INT8:
    case AT_UINT8:
    case AT_STR8:
        return 1;
    case AT_INT16:
    case AT_UINT16:
    case AT_STR16:
        return 2;
    case AT_INT32:
    case AT_UINT32:
    case AT_REAL:
    case AT_STR32:
        return 4;
    default:
        return 0;
    }
}

// Enters the first child of that name of the element that the reader stands on.
bool enterFirst(QXmlStreamReader& xml, const char* name)
{
    while (xml.readNextStartElement()) {
        if (xml.qualifiedName() == QLatin1String(name))
            return true;
        xml.skipCurrentElement();
    }
    return false;
}

// Calls `read` for the first child of that name and for all of its later siblings, whatever their names: the service
// reads them all. `read` has to leave the element.
void forEachFrom(QXmlStreamReader& xml, const char* name, const std::function<void()>& read)
{
    if (!enterFirst(xml, name))
        return;
    do
        read();
    while (xml.readNextStartElement());
}

// Leaves the element.
std::vector<MemberEntry> membersAndLeave(QXmlStreamReader& xml)
{
    std::vector<MemberEntry> members;
    if (!enterFirst(xml, "DataMembers"))
        return members;
    forEachFrom(xml, "DataMember", [&] {
        const std::uint32_t offset = text(xml, "Off").mid(OffsetPrefixLength).toUInt(nullptr, 16);
        members.push_back({utf8(xml, "DName"), offset, valueLayout(xml)});
        xml.skipCurrentElement();
    });
    xml.skipCurrentElement();
    return members;
}

// What the element of a publication or subscription says of its tag.
struct TagLayout
{
    ValueLayout value;
    std::vector<MemberEntry> members;
    std::uint32_t size = 0; // bytes
};

TagLayout tagLayoutAndLeave(QXmlStreamReader& xml)
{
    TagLayout layout{valueLayout(xml), {}, 0};
    if (layout.value.type != AT_STRUCT) {
        layout.size = sizeOf(layout.value);
        xml.skipCurrentElement();
        return layout;
    }
    layout.members = membersAndLeave(xml);
    // The size of a struct is where its last member ends.
    if (!layout.members.empty())
        layout.size = layout.members.back().offset + sizeOf(layout.members.back().value);
    return layout;
}

void readGeneral(QXmlStreamReader& xml, DeviceConfig& config)
{
    while (xml.readNextStartElement()) {
        if (xml.qualifiedName() == QLatin1String("General") && !config.generalAddress)
            config.generalAddress = address(xml, "Addr");
        else if (xml.qualifiedName() == QLatin1String("Statistics") && !config.statisticsAddress)
            config.statisticsAddress = address(xml, "Addr");
        xml.skipCurrentElement();
    }
    if (!xml.hasError() && !(config.generalAddress && config.statisticsAddress))
        xml.raiseError("the element General or Statistics is missing");
}

void readBroker(QXmlStreamReader& xml, DeviceConfig& config)
{
    BrokerEntry entry;
    entry.id = number(xml, "ID");
    entry.attributes = attributesOf(xml);
    entry.name = utf8(xml, "Name");
    entry.host = utf8(xml, "IPOrURL");
    entry.port = address(xml, "Port");
    entry.statusAddress = address(xml, "BrokerAddr");
    entry.willAddress = optionalAddress(xml, "LastWillAddr");
    const ValueLayout will = valueLayout(xml);
    entry.willSize = sizeOf({will.type, will.length, 0});
    config.brokers.push_back(entry);
    xml.skipCurrentElement();
}

void readPublication(QXmlStreamReader& xml, DeviceConfig& config)
{
    PublicationEntry entry;
    entry.id = number(xml, "ID");
    entry.attributes = attributesOf(xml);
    entry.name = utf8(xml, "Name");
    entry.dataAddress = address(xml, "DataAddr");
    entry.acknowledgeAddress = optionalAddress(xml, "BrokerReceivedAddr");
    TagLayout layout = tagLayoutAndLeave(xml);
    entry.dataSize = layout.size;
    entry.value = layout.value;
    entry.members = std::move(layout.members);
    config.publications.push_back(std::move(entry));
}

void readSubscription(QXmlStreamReader& xml, DeviceConfig& config)
{
    SubscriptionEntry entry;
    entry.id = number(xml, "ID");
    entry.attributes = attributesOf(xml);
    entry.name = utf8(xml, "Name");
    entry.dataAddress = address(xml, "DataAddr");
    entry.recordAddress = address(xml, "SubAddr");
    entry.buffered = number(xml, "IsBuffered") != 0;
    TagLayout layout = tagLayoutAndLeave(xml);
    entry.dataSize = layout.size;
    entry.value = layout.value;
    entry.members = std::move(layout.members);
    config.subscriptions.push_back(std::move(entry));
}

using Reader = std::function<void(QXmlStreamReader&, DeviceConfig&)>;

// Enters the list element below the top and calls `readEntry` for each entry in it.
Reader listReader(const char* listName, const char* entryName, Reader readEntry)
{
    return [=](QXmlStreamReader& xml, DeviceConfig& config) {
        if (enterFirst(xml, listName))
            forEachFrom(xml, entryName, [&] { readEntry(xml, config); });
    };
}

std::string positionedError(const QXmlStreamReader& xml)
{
    return "line " + std::to_string(xml.lineNumber()) + ", column " + std::to_string(xml.columnNumber()) + ": " +
           xml.errorString().toStdString();
}

void readFile(const std::string& directory, const char* name, const char* topElement, const Reader& read,
              DeviceConfig& config)
{
    const QString path = QString::fromStdString(directory + (directory.ends_with('/') ? "" : "/") + name);
    const auto addProblem = [&](const std::string& problem) {
        config.problems.push_back({path.toStdString(), problem});
    };
    QFile file(path);
    // Opening a pipe would wait for its writer.
    if (QFileInfo(path).exists() && !QFileInfo(path).isFile())
        return addProblem("this is no file");
    if (!file.open(QIODevice::ReadOnly))
        return addProblem("can't be read: " + file.errorString().toStdString());

    QXmlStreamReader xml(&file);
    xml.setNamespaceProcessing(false);
    if (xml.readNextStartElement() && xml.qualifiedName() != QLatin1String(topElement))
        return addProblem("its top element is not " + std::string(topElement));
    if (!xml.hasError())
        read(xml, config);
    // The service refuses a file that is not well-formed to its end, so a break behind what is read here counts, too.
    while (!xml.atEnd())
        xml.readNext();
    if (xml.hasError())
        addProblem(positionedError(xml));
}

} // namespace

std::uint32_t sizeOf(const ValueLayout& value)
{
    const bool isText = value.type == AT_STR8 || value.type == AT_STR16 || value.type == AT_STR32;
    const std::int64_t units = isText ? std::int64_t{value.length} + 1 : std::max(value.entries, 1);
    return static_cast<std::uint32_t>(std::clamp<std::int64_t>(unitSize(value.type) * units, 0, UINT32_MAX));
}

DeviceConfig readDeviceConfig(const std::string& directory, ConfigScope scope)
{
    DeviceConfig config;
    readFile(directory, DevicePaths::GeneralFile, "ClientConf", readGeneral, config);
    readFile(directory, DevicePaths::BrokersFile, "BrokersConf", listReader("Brokers", "BrokerConf", readBroker),
             config);
    readFile(directory, DevicePaths::SubscriptionsFile, "SubscriptionsConf",
             listReader("Subscriptions", "SubscriptionConf", readSubscription), config);
    if (scope == ConfigScope::StatusRecords)
        return config;
    readFile(directory, DevicePaths::PublicationsFile, "PublicationsConf",
             listReader("Publications", "PublicationConf", readPublication), config);
    return config;
}

} // namespace plcctl
