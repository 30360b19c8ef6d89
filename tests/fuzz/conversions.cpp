#include "fuzzing.h"
#include "secondreading.h"
#include "Services/mqttmanagerservices.h"

#include <algorithm>
#include <memory>
#include <QJsonDocument>
#include <QJsonObject>

// Both families of conversions to a tag's bytes, with the space that an input chooses. A choice of the space, one of
// the key, the datum; then the text.

namespace {

constexpr int Spaces[16] = {0, 1, 2, 3, 4, 5, 7, 8, 15, 16, 31, 64, 255, 1020, 2041, 5000};

// Not on the heap of a QByteArray, which has room to spare: whatever is written behind it is seen.
class ExactSpace
{
public:
    explicit ExactSpace(const QByteArray& bytes)
        : m_bytes(std::make_unique<char[]>(static_cast<std::size_t>(bytes.size()))), m_size(bytes.size())
    {
        std::copy(bytes.begin(), bytes.end(), m_bytes.get());
    }

    [[nodiscard]] TagSpace space() const { return {m_bytes.get(), m_size}; }
    [[nodiscard]] QByteArray bytes() const { return {m_bytes.get(), m_size}; }

private:
    std::unique_ptr<char[]> m_bytes;
    int m_size;
};

void convertSimple(const QByteArray& before, const Fuzzing::Datum& datum, const QString& text)
{
    QString firstText = text;
    const ExactSpace tag(before);
    MQTTManagerServices::instance()->JsonSimpleStringToBufferConversion(firstText, datum.type, datum.entries,
                                                                        datum.length, tag.space());
    QString secondText = text;
    Fuzzing::require(tag.bytes() ==
                         SecondReading::simpleToTag(before, secondText, datum.type, datum.entries, datum.length),
                     "a text becomes the tag's bytes as the rules say");
    Fuzzing::require(firstText == secondText, "the caller's text is changed as the rules say");
}

void convertObject(const QByteArray& before, const Fuzzing::Datum& datum, const QString& key, const QJsonObject& object)
{
    QJsonObject firstObject = object;
    const ExactSpace tag(before);
    MQTTManagerServices::instance()->JsonObjStringToBufferConversion(firstObject, datum.type, key, datum.entries,
                                                                     tag.space());
    QJsonObject secondObject = object;
    Fuzzing::require(tag.bytes() == SecondReading::objectToTag(before, secondObject, datum.type, key, datum.entries),
                     "a key's value becomes the tag's bytes as the rules say");
    Fuzzing::require(firstObject == secondObject, "the object is left as the rules say");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Fuzzing::Input input(data, size);
    const QByteArray before(input.choose(Spaces), '\xAA');
    const QString key = Fuzzing::chooseKey(input);
    const Fuzzing::Datum datum(input);
    const QByteArray payload = input.rest();
    if (Fuzzing::escapesSurrogate(payload))
        return 0;

    QString text = QString::fromUtf8(payload);
    convertSimple(before, datum, text);
    convertObject(before, datum, key, QJsonDocument::fromJson(payload).object());

    QString sameText = text;
    Fuzzing::require(MQTTManagerServices::instance()->validateJsonArrayStringAndReturnValueList(text) ==
                         SecondReading::listOf(sameText),
                     "an array falls apart into the texts between its commas");
    Fuzzing::require(text == sameText, "an array loses its brackets");
    return 0;
}
