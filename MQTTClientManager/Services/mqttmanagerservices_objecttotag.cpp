#include "Services/mqttmanagerservices.h"

#include "Services/mqttmanagerservices_texttotag.h"

#include <algorithm>
#include <QJsonArray>
#include <QJsonObject>
#include <QVariant>

namespace {

// How one JSON value becomes the value that is stored. Numbers are cut to their width.

struct BoolOfJson
{
    static quint8 value(const QJsonValue& json) { return json.toBool(false) ? 1 : 0; }
};

// Intended: anything but a whole number that fits 32 bits gives 0, also a text or a boolean.
template<typename Integer>
struct SignedOfJson
{
    static Integer value(const QJsonValue& json) { return static_cast<Integer>(json.toInt(0)); }
};

// Intended: unlike the signed types these also take texts and booleans, and round a fraction.
template<typename Integer>
struct UnsignedOfJson
{
    static Integer value(const QJsonValue& json)
    {
        if (json.isArray() || json.isObject()) // would be copied as a whole, to give 0 in the end
            return 0;
        return static_cast<Integer>(json.toVariant().toUInt());
    }
};

struct RealOfJson
{
    static float value(const QJsonValue& json) { return static_cast<float>(json.toDouble(0.0)); }
};

// A key that the object lacks reads as null, and stands in the object from then on. Looks it up without the access that
// copies a shared object.
QJsonValue valueOf(QJsonObject& object, const QString& key)
{
    const auto found = object.constFind(key);
    if (found != object.constEnd())
        return *found;
    object.insert(key, QJsonValue());
    return {};
}

template<typename Conversion>
void storeValue(QJsonObject& object, const QString& key, TagSpace buffer)
{
    buffer.putElement(0, Conversion::value(valueOf(object, key)));
}

// Nulls take no element of the tag: what comes after them moves up. Elements that the array doesn't have give 0.
template<typename Conversion>
void storeElements(QJsonObject& object, const QString& key, int entries, TagSpace buffer)
{
    using Value = decltype(Conversion::value(QJsonValue()));
    const QJsonArray array = valueOf(object, key).toArray();
    const int present = std::min(entries, array.size());
    const int most = buffer.elementsInside(entries, sizeof(Value));
    int position = 0;
    for (int i = 0; i < present && position < most; ++i) {
        const QJsonValue json = array.at(i);
        if (!json.isNull())
            buffer.putElement(position++, Conversion::value(json));
    }
    buffer.putZeros(position * qint64{sizeof(Value)}, (qint64{entries} - present) * qint64{sizeof(Value)});
}

} // namespace

void MQTTManagerServices::JsonObjStringToBufferConversion(QJsonObject& object, ArgType type, QString key, int entries,
                                                          TagSpace buffer)
{
    if (type < AT_NOTYPE || type >= ARG_TYPES)
        return;
    if (const ObjectConversion convert = m_jObjSConversions[entries == 0 ? 0 : 1][type])
        (this->*convert)(object, key, entries, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_NOP(QJsonObject& /*object*/, QString /*key*/, int /*entries*/,
                                                      TagSpace /*buffer*/)
{
}

void MQTTManagerServices::jObjSToBufferConversion_BOOL_NENTRY(QJsonObject& object, QString key, int, TagSpace buffer)
{
    storeValue<BoolOfJson>(object, key, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_BOOL_ENTRY(QJsonObject& object, QString key, int entries,
                                                             TagSpace buffer)
{
    storeElements<BoolOfJson>(object, key, entries, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_INT8_NENTRY(QJsonObject& object, QString key, int, TagSpace buffer)
{
    storeValue<SignedOfJson<qint8>>(object, key, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_INT8_ENTRY(QJsonObject& object, QString key, int entries,
                                                             TagSpace buffer)
{
    storeElements<SignedOfJson<qint8>>(object, key, entries, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_UINT8_NENTRY(QJsonObject& object, QString key, int, TagSpace buffer)
{
    storeValue<UnsignedOfJson<quint8>>(object, key, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_UINT8_ENTRY(QJsonObject& object, QString key, int entries,
                                                              TagSpace buffer)
{
    storeElements<UnsignedOfJson<quint8>>(object, key, entries, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_INT16_NENTRY(QJsonObject& object, QString key, int, TagSpace buffer)
{
    storeValue<SignedOfJson<qint16>>(object, key, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_INT16_ENTRY(QJsonObject& object, QString key, int entries,
                                                              TagSpace buffer)
{
    storeElements<SignedOfJson<qint16>>(object, key, entries, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_UINT16_NENTRY(QJsonObject& object, QString key, int, TagSpace buffer)
{
    storeValue<UnsignedOfJson<quint16>>(object, key, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_UINT16_ENTRY(QJsonObject& object, QString key, int entries,
                                                               TagSpace buffer)
{
    storeElements<UnsignedOfJson<quint16>>(object, key, entries, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_UINT32_NENTRY(QJsonObject& object, QString key, int, TagSpace buffer)
{
    storeValue<UnsignedOfJson<quint32>>(object, key, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_UINT32_ENTRY(QJsonObject& object, QString key, int entries,
                                                               TagSpace buffer)
{
    storeElements<UnsignedOfJson<quint32>>(object, key, entries, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_INT32_NENTRY(QJsonObject& object, QString key, int, TagSpace buffer)
{
    storeValue<SignedOfJson<qint32>>(object, key, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_INT32_ENTRY(QJsonObject& object, QString key, int entries,
                                                              TagSpace buffer)
{
    storeElements<SignedOfJson<qint32>>(object, key, entries, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_REAL_NENTRY(QJsonObject& object, QString key, int, TagSpace buffer)
{
    storeValue<RealOfJson>(object, key, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_REAL_ENTRY(QJsonObject& object, QString key, int entries,
                                                             TagSpace buffer)
{
    storeElements<RealOfJson>(object, key, entries, buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_STR8_ENTRY(QJsonObject& object, QString key, int, TagSpace buffer)
{
    const QString text = valueOf(object, key).toString();
    TextToTag::copyText8(QStringRef(&text), buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_STR16_ENTRY(QJsonObject& object, QString key, int, TagSpace buffer)
{
    const QString text = valueOf(object, key).toString();
    TextToTag::copyText16(QStringRef(&text), buffer);
}

void MQTTManagerServices::jObjSToBufferConversion_STR32_ENTRY(QJsonObject& object, QString key, int, TagSpace buffer)
{
    const QString text = valueOf(object, key).toString();
    TextToTag::copyText32(QStringRef(&text), buffer);
}
