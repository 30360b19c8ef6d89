#include "convert/convert.h"

#include "configuredvalue.h"
#include "convert/arrival.h"
#include "convert/departure.h"
#include "reporttext.h"
#include "servicecode/configuredentities.h"
#include "tagaccess.h"
#include "tagtypes.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>

namespace plcctl {

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes bytesFromHex(const std::string& digits)
{
    const std::string texts[] = {digits};
    return digits.empty() ? Bytes() : bytesFromText(*findTagType("BYTES"), texts, std::nullopt);
}

std::string readAll(const std::string& file)
{
    if (file == "-")
        return {std::istreambuf_iterator<char>(std::cin), {}};
    std::ifstream stream(file, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(stream), {}};
    if (stream.bad() || !stream.is_open())
        throw Failure(ExitCode::NothingToRead, inQuotes(file) + " can't be read");
    return content;
}

// The words of the command line: the type where no entity gives it, and the value where no file does.
struct Words
{
    std::string type;
    std::optional<std::string> value;
};

Words sortWords(const ConvertArguments& arguments)
{
    const bool needsType = arguments.subscription.empty() && arguments.publication.empty();
    if (needsType && !arguments.first)
        throw Failure(ExitCode::Usage, "say what is to be converted, as in: plcctl convert REAL 21.5");
    Words words{needsType ? *arguments.first : "", needsType ? arguments.second : arguments.first};
    if ((!needsType && arguments.second) || (words.value && !arguments.file.empty()))
        throw Failure(ExitCode::Usage, "too many words: a payload with blanks needs quotes around it, and the type "
                                       "comes from the configuration, the payload from the file");
    if (!arguments.file.empty())
        words.value = readAll(arguments.file);
    return words;
}

template<typename Entity>
Entity& findByName(QList<Entity>& entities, const std::string& text, const char* kind)
{
    const QString wanted = QString::fromStdString(text);
    for (Entity& entity : entities) {
        if (QString::number(entity.m_UniqueID) == wanted || entity.m_Name == wanted)
            return entity;
    }
    std::string known;
    for (const Entity& entity : std::as_const(entities))
        known += (known.empty() ? "; there are " : ", ") + inQuotes(entity.m_Name.toStdString());
    throw Failure(ExitCode::Usage, std::string("there is no ") + kind + " " + inQuotes(text) + known);
}

std::string textOf(const ValueLayout& layout, std::span<const std::uint8_t> bytes)
{
    SubscriptionEntry entry;
    entry.value = layout;
    return textOfData(entry, bytes);
}

std::string inColumn(std::string text, std::size_t width)
{
    text.resize(std::max(text.size() + 1, width), ' ');
    return text;
}

constexpr std::size_t LabelWidth = 10;
constexpr std::size_t MostBytesShown = 64;

void printBytes(std::span<const std::uint8_t> bytes)
{
    const std::string more =
        bytes.size() > MostBytesShown ? " and " + std::to_string(bytes.size() - MostBytesShown) + " more" : "";
    printLine(inColumn("bytes", LabelWidth) + hexBytes(bytes.first(std::min(bytes.size(), MostBytesShown))) + more);
}

Json jsonOf(const PartReport& report)
{
    SubscriptionEntry entry;
    entry.value = report.part.layout;
    return {
        {"name", report.part.name},        {"type", nameOf(report.part.layout)},       {"offset", report.part.offset},
        {"bytes", hexBytes(report.bytes)}, {"value", jsonOfData(entry, report.bytes)}, {"notes", report.notes}};
}

Json jsonOf(const Arrival& arrival)
{
    Json object{{"type", arrival.title},          {"size", arrival.size},
                {"written", arrival.isWritten},   {"result", codeJson(CodeDomain::Subscription, arrival.result)},
                {"bytes", hexBytes(arrival.tag)}, {"values", Json::array()},
                {"notes", arrival.notes}};
    for (const PartReport& report : arrival.parts)
        object["values"].push_back(jsonOf(report));
    return object;
}

void printPart(const PartReport& report)
{
    const std::string text = textOf(report.part.layout, report.bytes);
    if (report.part.name.empty())
        printLine(inColumn("value", LabelWidth) + text);
    else
        printLine("  +" + inColumn(std::to_string(report.part.offset), LabelWidth - 4) +
                  inColumn(nameOf(report.part.layout), LabelWidth) + inQuotes(report.part.name) + " = " + text);
    for (const std::string& note : report.notes)
        printLine((report.part.name.empty() ? inColumn("note", LabelWidth) : "         note: ") + printable(note));
}

void print(const Arrival& arrival)
{
    printLine(inColumn("tag", LabelWidth) + printable(arrival.title) + ", " + std::to_string(arrival.size) + " bytes");
    if (arrival.isWritten)
        printBytes(arrival.tag);
    else
        printLine(inColumn("bytes", LabelWidth) + "none: the tag keeps its old data");
    for (const PartReport& report : arrival.parts)
        printPart(report);
    if (arrival.result != 0)
        printLine(inColumn("record", LabelWidth) + "last result " + describe(CodeDomain::Subscription, arrival.result));
    for (const std::string& note : arrival.notes)
        printLine(inColumn("note", LabelWidth) + note);
}

std::string titleOf(const MQTTCallerBase& entity, const char* kind)
{
    return std::string(kind) + " " + inQuotes(entity.m_Name.toStdString()) + ", " +
           nameOf({entity.m_DataType, entity.m_DataLen, entity.m_Entries});
}

MQTTPayloadFormat formatOf(const ConvertArguments& arguments)
{
    return arguments.format == "json" ? PF_JSON : PF_BUFFER;
}

Arrival arrivalOf(const ConvertArguments& arguments, const Words& words, const std::string& payload)
{
    if (arguments.subscription.empty()) {
        const ValueLayout layout = parseTagForm(words.type);
        Subscriber subscriber;
        setForm(subscriber, layout, formatOf(arguments));
        return arrive(subscriber, payload, nameOf(layout));
    }
    QList<Subscriber> all = readSubscriptions(arguments.configDirectory);
    Subscriber& subscriber = findByName(all, arguments.subscription, "subscription");
    return arrive(subscriber, payload, titleOf(subscriber, "subscription"));
}

ExitCode convertPayload(const ConvertArguments& arguments)
{
    const Words words = sortWords(arguments);
    if (!words.value)
        throw Failure(ExitCode::Usage, "the payload is missing; an empty one is '', and --file takes it from a file");
    const Bytes digits = arguments.hex ? bytesFromHex(*words.value) : Bytes();
    const std::string payload = arguments.hex ? std::string(digits.begin(), digits.end()) : *words.value;
    const Arrival arrival = arrivalOf(arguments, words, payload);
    if (arguments.json)
        printJson(jsonOf(arrival));
    else
        print(arrival);
    return arrival.isWritten ? ExitCode::Done : ExitCode::Failed;
}

Bytes tagNow(const Publisher& publisher)
{
    const auto size = static_cast<std::size_t>(std::clamp(publisher.m_DataSize, 0, static_cast<int>(MaxTagBytes)));
    return TagReader().read(publisher.m_DataAddress, size);
}

void print(const Departure& departure, bool isText)
{
    printLine(inColumn("tag", LabelWidth) + printable(departure.title) + ", " + std::to_string(departure.tag.size()) +
              " bytes");
    printBytes(departure.tag);
    if (departure.payload && isText)
        printLine(inColumn("message", LabelWidth) + printable(*departure.payload));
    else if (departure.payload)
        printLine(inColumn("message", LabelWidth) + "the same bytes");
    for (const std::string& note : departure.notes)
        printLine(inColumn("note", LabelWidth) + note);
}

Json jsonOf(const Departure& departure, bool isText)
{
    Json payload = nullptr;
    if (departure.payload)
        payload = isText ? *departure.payload : hexBytes(departure.tag);
    return {{"type", departure.title},
            {"size", departure.tag.size()},
            {"bytes", hexBytes(departure.tag)},
            {isText ? "text" : "payload", payload},
            {"notes", departure.notes}};
}

// The payload, and whether it is text.
struct Message
{
    Departure departure;
    bool isText;
};

Message messageOf(const ConvertArguments& arguments, const Words& words)
{
    if (arguments.publication.empty()) {
        const ValueLayout layout = parseTagForm(words.type);
        if (!words.value)
            throw Failure(ExitCode::Usage, "the tag's bytes are missing, as in: plcctl convert --publish INT16 2c01");
        Publisher publisher;
        setForm(publisher, layout, formatOf(arguments));
        return {depart(publisher, bytesFromHex(*words.value), nameOf(layout)), publisher.m_PayloadFormat == PF_JSON};
    }
    QList<Publisher> all = readPublications(arguments.configDirectory);
    Publisher& publisher = findByName(all, arguments.publication, "publication");
    const Bytes tag = words.value ? bytesFromHex(*words.value) : tagNow(publisher);
    return {depart(publisher, tag, titleOf(publisher, "publication")), publisher.m_PayloadFormat == PF_JSON};
}

ExitCode convertTag(const ConvertArguments& arguments)
{
    const Message message = messageOf(arguments, sortWords(arguments));
    if (arguments.json)
        printJson(jsonOf(message.departure, message.isText));
    else
        print(message.departure, message.isText);
    return message.departure.payload ? ExitCode::Done : ExitCode::Failed;
}

} // namespace

ExitCode convert(const ConvertArguments& arguments)
{
    return arguments.publish || !arguments.publication.empty() ? convertTag(arguments) : convertPayload(arguments);
}

} // namespace plcctl
