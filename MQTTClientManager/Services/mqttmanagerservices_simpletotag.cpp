#include "Services/mqttmanagerservices.h"

#include "logging.h"
#include "Services/mqttmanagerservices_texttotag.h"
#include "Utils/jsontext.h"

#include <QJsonDocument>

namespace {

// How one element's text becomes the value that is stored. There is no check of the range: numbers are cut to their
// width, and what is no number is 0.

struct BoolOfText
{
    // Intended: no other spelling counts, not even with a blank ahead of it.
    static quint8 value(const QStringRef& text) { return text == QLatin1String("true") ? 1 : 0; }
};

template<typename Integer>
struct SignedOfText
{
    static Integer value(const QStringRef& text) { return static_cast<Integer>(text.toInt()); }
};

// Intended: a negative text is no unsigned number, so it gives 0.
template<typename Integer>
struct UnsignedOfText
{
    static Integer value(const QStringRef& text) { return static_cast<Integer>(text.toUInt()); }
};

struct RealOfText
{
    static float value(const QStringRef& text) { return text.toFloat(); }
};

template<typename Conversion>
void storeValue(const QString& text, TagSpace buffer)
{
    buffer.putElement(0, Conversion::value(QStringRef(&text)));
}

// `list` holds elements between commas. Takes as many of them as there are entries, and looks no further: a payload may
// hold millions.
template<typename Conversion>
void storeList(const QString& list, int entries, TagSpace buffer)
{
    using Value = decltype(Conversion::value(QStringRef()));
    const int most = buffer.elementsInside(entries, sizeof(Value));
    int start = 0;
    for (int i = 0; i < most && start <= list.size(); ++i) {
        const int comma = list.indexOf(',', start);
        const int end = comma == -1 ? list.size() : comma;
        buffer.putElement(i, Conversion::value(QStringRef(&list, start, end - start)));
        start = end + 1;
    }
}

} // namespace

void MQTTManagerServices::JsonSimpleStringToBufferConversion(QString& text, ArgType type, int entries, int length,
                                                             TagSpace buffer)
{
    if (type < AT_NOTYPE || type >= ARG_TYPES)
        return;
    if (const SimpleConversion convert = m_jSSConversions[entries == 0 ? 0 : 1][type])
        (this->*convert)(text, entries, length, buffer);
}

// Intended: nested arrays are flattened, and texts keep their quotes.
bool MQTTManagerServices::reduceToList(QString& text)
{
    QJsonParseError error;
    const QJsonDocument document =
        QJsonDocument::fromJson(JsonText::withoutReplacedContainers(text.toLatin1()), &error);
    if (document.isNull() || !text.contains('[') || !text.contains(']')) {
        PLOG_DEBUG << QString("Json is |%1| error is %2").arg(text, error.errorString());
        return false;
    }
    text.remove('[');
    text.remove(']');
    return true;
}

QStringList MQTTManagerServices::validateJsonArrayStringAndReturnValueList(QString& text)
{
    return reduceToList(text) ? text.split(',', Qt::KeepEmptyParts, Qt::CaseSensitive) : QStringList();
}

template<typename Conversion>
void MQTTManagerServices::storeArray(QString& text, int entries, TagSpace buffer)
{
    if (reduceToList(text))
        storeList<Conversion>(text, entries, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_NOP(QString& /*text*/, int /*entries*/, int /*length*/,
                                                    TagSpace /*buffer*/)
{
}

void MQTTManagerServices::jSSToBufferConversion_BOOL_NENTRY(QString& text, int, int, TagSpace buffer)
{
    storeValue<BoolOfText>(text, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_BOOL_ENTRY(QString& text, int entries, int, TagSpace buffer)
{
    storeArray<BoolOfText>(text, entries, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_INT8_NENTRY(QString& text, int, int, TagSpace buffer)
{
    storeValue<SignedOfText<qint8>>(text, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_INT8_ENTRY(QString& text, int entries, int, TagSpace buffer)
{
    storeArray<SignedOfText<qint8>>(text, entries, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_UINT8_NENTRY(QString& text, int, int, TagSpace buffer)
{
    storeValue<UnsignedOfText<quint8>>(text, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_UINT8_ENTRY(QString& text, int entries, int, TagSpace buffer)
{
    storeArray<UnsignedOfText<quint8>>(text, entries, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_INT16_NENTRY(QString& text, int, int, TagSpace buffer)
{
    storeValue<SignedOfText<qint16>>(text, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_INT16_ENTRY(QString& text, int entries, int, TagSpace buffer)
{
    storeArray<SignedOfText<qint16>>(text, entries, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_UINT16_NENTRY(QString& text, int, int, TagSpace buffer)
{
    storeValue<UnsignedOfText<quint16>>(text, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_UINT16_ENTRY(QString& text, int entries, int, TagSpace buffer)
{
    storeArray<UnsignedOfText<quint16>>(text, entries, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_UINT32_NENTRY(QString& text, int, int, TagSpace buffer)
{
    storeValue<UnsignedOfText<quint32>>(text, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_UINT32_ENTRY(QString& text, int entries, int, TagSpace buffer)
{
    storeArray<UnsignedOfText<quint32>>(text, entries, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_INT32_NENTRY(QString& text, int, int, TagSpace buffer)
{
    storeValue<SignedOfText<qint32>>(text, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_INT32_ENTRY(QString& text, int entries, int, TagSpace buffer)
{
    storeArray<SignedOfText<qint32>>(text, entries, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_REAL_NENTRY(QString& text, int, int, TagSpace buffer)
{
    storeValue<RealOfText>(text, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_REAL_ENTRY(QString& text, int entries, int, TagSpace buffer)
{
    storeArray<RealOfText>(text, entries, buffer);
}

void MQTTManagerServices::jSSToBufferConversion_STR8_ENTRY(QString& text, int, int length, TagSpace buffer)
{
    TextToTag::copyText8(text.leftRef(length), buffer);
}

void MQTTManagerServices::jSSToBufferConversion_STR16_ENTRY(QString& text, int, int length, TagSpace buffer)
{
    TextToTag::copyText16(text.leftRef(length), buffer);
}

void MQTTManagerServices::jSSToBufferConversion_STR32_ENTRY(QString& text, int, int length, TagSpace buffer)
{
    TextToTag::copyText32(text.leftRef(length), buffer);
}
