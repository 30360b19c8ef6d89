#include "Services/mqttmanagerservices.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <QVarLengthArray>
#include <string_view>

namespace {

constexpr int LongestNumber = 24; // characters; the longest is a REAL in exponent form

// An AT_BOOL: only 1 is true.
enum class Truth : quint8
{
    True = 1
};

// The bytes of a tag. What lies past their end reads as zero; elements need not be aligned.
struct TagBytes
{
    const char* bytes;
    qint64 size;

    template<typename Value>
    [[nodiscard]] Value at(qint64 index) const
    {
        Value value{};
        const qint64 offset = index * qint64{sizeof value};
        if (const qint64 present = size - offset; present >= qint64{sizeof value})
            std::memcpy(&value, bytes + offset, sizeof value);
        else if (present > 0)
            std::memcpy(&value, bytes + offset, static_cast<std::size_t>(present));
        return value;
    }
};

char* copyCharacters(char* to, const char* characters)
{
    return std::copy_n(characters, std::strlen(characters), to);
}

// The writers put the text of one value at `to`, which has room for the longest, and return its end.
char* writeValue(char* to, Truth value)
{
    return copyCharacters(to, value == Truth::True ? "true" : "false");
}

template<typename Integer>
char* writeValue(char* to, Integer value)
{
    return std::to_chars(to, to + LongestNumber, value).ptr;
}

// The same text as QString::number(value, 'g', 6), which has no negative zero and no sign of a NaN, and rounds a value
// that lies exactly between two texts away from zero. std::to_chars would round that to the even digit: the next larger
// double is past the middle, and so near that no other float gets a different text by it.
char* writeValue(char* to, float value)
{
    if (value == 0)
        return copyCharacters(to, "0");
    if (!std::isfinite(value))
        return copyCharacters(to, std::isnan(value) ? "nan" : (value < 0 ? "-inf" : "inf"));
    const auto pastTheMiddle = std::bit_cast<double>(std::bit_cast<quint64>(double{value}) + 1);
    return std::to_chars(to, to + LongestNumber, pastTheMiddle, std::chars_format::general, 6).ptr;
}

// Text that grows as it has to.
class GrowingText
{
public:
    void append(std::string_view piece) { m_text.append(piece.data(), static_cast<int>(piece.size())); }
    [[nodiscard]] bool fits() const { return true; }
    [[nodiscard]] const QByteArray& text() const { return m_text; }

private:
    QByteArray m_text;
};

template<typename Value, typename Text>
void appendValues(Text& text, TagBytes tag, int entries)
{
    char characters[1 + LongestNumber];
    if (entries == 0)
        return text.append({characters, writeValue(characters, tag.at<Value>(0))});
    // Intended: a negative number of entries gives a closing bracket alone.
    characters[0] = '[';
    for (int i = 0; i < entries && text.fits(); ++i) {
        text.append({characters, writeValue(characters + 1, tag.at<Value>(i))});
        characters[0] = ',';
    }
    text.append("]");
}

template<typename Text>
void appendNumbers(Text& text, TagBytes tag, ArgType type, int entries)
{
    switch (type) {
    case AT_BOOL:
        return appendValues<Truth>(text, tag, entries);
    case AT_INT8:
        return appendValues<qint8>(text, tag, entries);
    case AT_UINT8:
        return appendValues<quint8>(text, tag, entries);
    case AT_INT16:
        return appendValues<qint16>(text, tag, entries);
    case AT_UINT16:
        return appendValues<quint16>(text, tag, entries);
    case AT_UINT32:
        return appendValues<quint32>(text, tag, entries);
    case AT_INT32:
        return appendValues<qint32>(text, tag, entries);
    case AT_REAL:
        return appendValues<float>(text, tag, entries);
    default:
        text.append("0");
    }
}

bool isText(ArgType type)
{
    return type == AT_STR8 || type == AT_STR16 || type == AT_STR32;
}

// Bytes of an AT_STR8 ahead of its terminator.
int lengthOfText8(TagBytes tag, int length)
{
    return static_cast<int>(
        qstrnlen(tag.bytes, static_cast<uint>(std::clamp<qint64>(tag.size, 0, std::max(length, 0)))));
}

// The units of a wide text ahead of its terminator.
template<typename Unit>
QVarLengthArray<Unit, 256> unitsOfText(TagBytes tag, int length)
{
    QVarLengthArray<Unit, 256> units;
    for (int i = 0; i < length; ++i) {
        const auto unit = tag.at<Unit>(i);
        if (unit == 0)
            break;
        units.append(unit);
    }
    return units;
}

QString textOf(TagBytes tag, ArgType type, int length)
{
    if (type == AT_STR8)
        return QString::fromUtf8(tag.bytes, lengthOfText8(tag, length));
    if (type == AT_STR16) {
        const auto units = unitsOfText<char16_t>(tag, length);
        return QString::fromUtf16(units.constData(), units.size());
    }
    const auto units = unitsOfText<char32_t>(tag, length);
    return QString::fromUcs4(units.constData(), units.size());
}

bool isAscii(const char* bytes, int size)
{
    return std::all_of(bytes, bytes + size, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Not escaped, intended: a quote or a backslash inside the text goes out as it is.
void appendQuoted(BoundedText& text, TagBytes tag, ArgType type, int length)
{
    text.append("\"");
    const int bytes = type == AT_STR8 ? lengthOfText8(tag, length) : 0;
    if (type == AT_STR8 && isAscii(tag.bytes, bytes)) { // decoding and encoding would give the same bytes
        text.append({tag.bytes, static_cast<std::size_t>(bytes)});
    } else {
        const QByteArray utf8 = textOf(tag, type, length).toUtf8();
        text.append({utf8.constData(), static_cast<std::size_t>(utf8.size())});
    }
    text.append("\"");
}

} // namespace

QString MQTTManagerServices::BufferToQStringConversion(char* buffer, ArgType type, int length, int entries) const
{
    const TagBytes tag{buffer, std::numeric_limits<qint64>::max()};
    if (isText(type))
        return '"' + textOf(tag, type, length) + '"';
    GrowingText text;
    appendNumbers(text, tag, type, entries);
    return QString::fromLatin1(text.text());
}

void MQTTManagerServices::AppendTagText(BoundedText& text, const char* bytes, qint64 size, ArgType type, int length,
                                        int entries) const
{
    const TagBytes tag{bytes, size};
    if (isText(type))
        appendQuoted(text, tag, type, length);
    else
        appendNumbers(text, tag, type, entries);
}
