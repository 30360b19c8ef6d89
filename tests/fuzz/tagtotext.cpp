#include "Entities/publisher.h"
#include "fuzzing.h"
#include "guardedtagmemory.h"
#include "secondreading.h"
#include "Services/mqttmanagerservices.h"

#include <algorithm>
#include <array>
#include <memory>

// A tag on its way into JSON, as a value by itself and as a publication's struct of two members: the offset, the key
// and the datum of each; then the tag's bytes.

namespace {

// More would only take time: an array of that many elements is the same text again and again.
constexpr int MostEntries = 2000;
constexpr int MostCharacters = 6000;

struct Member
{
    explicit Member(Fuzzing::Input& input)
        : offset(Fuzzing::chooseOffset(input)), key(Fuzzing::chooseKey(input)), datum(input)
    {
    }

    unsigned int offset;
    QString key;
    Fuzzing::Datum datum;
};

bool isModest(const Fuzzing::Datum& datum)
{
    return datum.entries <= MostEntries && datum.length <= MostCharacters;
}

// In memory of exactly the given size, so that whatever is written behind it is seen.
void compareBounded(const QByteArray& bytes, const Fuzzing::Datum& datum, const QByteArray& whole, int size)
{
    const auto memory = std::make_unique<char[]>(static_cast<std::size_t>(size));
    BoundedText text(memory.get(), static_cast<std::size_t>(size));
    MQTTManagerServices::instance()->AppendTagText(text, bytes.constData(), bytes.size(), datum.type, datum.length,
                                                   datum.entries);
    Fuzzing::require(text.fits() == (whole.size() <= size), "a text fits when it is no longer than the memory");
    const QByteArray appended(text.text().data(), static_cast<int>(text.text().size()));
    Fuzzing::require(text.fits() ? appended == whole : whole.startsWith(appended),
                     "both forms of the conversion agree, as far as the text fits");
}

void compareValue(const QByteArray& bytes, const Fuzzing::Datum& datum)
{
    const QString expected = SecondReading::tagToText(bytes, datum.type, datum.length, datum.entries);
    // Long enough for whatever a modest datum asks for.
    QByteArray padded = bytes + QByteArray(4 * (MostCharacters + 1), '\0');
    const QString text = MQTTManagerServices::instance()->BufferToQStringConversion(padded.data(), datum.type,
                                                                                    datum.length, datum.entries);
    Fuzzing::require(text == expected, "a tag becomes the text that the rules give");

    const QByteArray whole = expected.toUtf8();
    for (const int size : {0, 1, 16, whole.size() - 1, whole.size(), whole.size() + 1})
        compareBounded(bytes, datum, whole, std::max(size, 0));
}

// Values without end: what matters is that the conversion ends.
void convertEndless(const QByteArray& bytes, const Fuzzing::Datum& datum)
{
    std::array<char, SIZEOF_PUBLISH_BUFFER> memory{};
    BoundedText text(memory.data(), memory.size());
    MQTTManagerServices::instance()->AppendTagText(text, bytes.constData(), bytes.size(), datum.type, datum.length,
                                                   datum.entries);
}

QByteArray expectedStruct(const QByteArray& tag, const QList<JsonDataMember>& members)
{
    QString text = "{";
    for (const JsonDataMember& member : members) {
        const auto offset = static_cast<int>(std::min(member.Offset, static_cast<unsigned int>(tag.size())));
        text += '"' + member.Name +
                "\":" + SecondReading::tagToText(tag.mid(offset), member.Type, member.Len, member.Entry) + ',';
    }
    text.chop(1);
    return (text + '}').toUtf8();
}

void compareStruct(const QByteArray& bytes, std::initializer_list<Member> members)
{
    Publisher publisher;
    publisher.m_PayloadFormat = PF_JSON;
    publisher.m_DataType = AT_STRUCT;
    for (const Member& member : members) {
        publisher.m_DataMembers.append(
            {member.key, member.datum.type, member.datum.entries, member.datum.length, member.offset});
    }
    publisher.CalcDataSize();
    GuardedTagMemory::reset({});
    GuardedTagMemory::setContent(bytes);
    const int size = std::clamp(publisher.m_DataSize, 0, 65535);
    QByteArray buffer(size, '\0');
    const QByteArray text = publisher.assembleJsonByteArrayFromBuffer(buffer.data(), publisher.m_DataSize);
    const QByteArray expected = expectedStruct(buffer, publisher.m_DataMembers);
    Fuzzing::require(expected.size() > SIZEOF_PUBLISH_BUFFER ? text.isNull() : text == expected,
                     "a struct is published as the rules say, or found too long");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Fuzzing::Input input(data, size);
    const Member first(input);
    const Member second(input);
    const QByteArray bytes = input.rest();
    if (isModest(first.datum))
        compareValue(bytes, first.datum);
    else
        convertEndless(bytes, first.datum);
    if (isModest(first.datum) && isModest(second.datum))
        compareStruct(bytes, {first, second});
    return 0;
}
