#include "secondreading.h"

#include <algorithm>
#include <cstring>
#include <QJsonArray>
#include <QJsonDocument>
#include <QVariant>

namespace {

template<typename Value>
void store(QByteArray& tag, qint64 index, Value value)
{
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    for (qint64 i = 0; i < qint64{sizeof value}; ++i) {
        if (const qint64 at = index * qint64{sizeof value} + i; at < tag.size())
            tag[static_cast<int>(at)] = bytes[i];
    }
}

void storeText(QByteArray& tag, ArgType type, const QString& text)
{
    if (type == AT_STR8) {
        const QByteArray bytes = text.toUtf8() + '\0';
        for (int i = 0; i < text.size() + 1; ++i)
            store(tag, i, bytes.at(i));
    } else if (type == AT_STR16) {
        for (int i = 0; i < text.size(); ++i)
            store(tag, i, text.at(i).unicode());
        store(tag, text.size(), char16_t{0});
    } else {
        const QVector<uint> codePoints = text.toUcs4();
        for (int i = 0; i < text.size() + 1; ++i)
            store(tag, i, codePoints.value(i));
    }
}

void storeElement(QByteArray& tag, qint64 index, ArgType type, const QString& text)
{
    switch (type) {
    case AT_BOOL:
        return store(tag, index, static_cast<quint8>(text == "true"));
    case AT_INT8:
        return store(tag, index, static_cast<qint8>(text.toInt()));
    case AT_UINT8:
        return store(tag, index, static_cast<quint8>(text.toUInt()));
    case AT_INT16:
        return store(tag, index, static_cast<qint16>(text.toInt()));
    case AT_UINT16:
        return store(tag, index, static_cast<quint16>(text.toUInt()));
    case AT_UINT32:
        return store(tag, index, text.toUInt());
    case AT_INT32:
        return store(tag, index, text.toInt());
    default:
        return store(tag, index, text.toFloat());
    }
}

void storeElement(QByteArray& tag, qint64 index, ArgType type, const QJsonValue& value)
{
    switch (type) {
    case AT_BOOL:
        return store(tag, index, static_cast<quint8>(value.toBool(false)));
    case AT_INT8:
        return store(tag, index, static_cast<qint8>(value.toInt(0)));
    case AT_UINT8:
        return store(tag, index, static_cast<quint8>(value.toVariant().toUInt()));
    case AT_INT16:
        return store(tag, index, static_cast<qint16>(value.toInt(0)));
    case AT_UINT16:
        return store(tag, index, static_cast<quint16>(value.toVariant().toUInt()));
    case AT_UINT32:
        return store(tag, index, value.toVariant().toUInt());
    case AT_INT32:
        return store(tag, index, value.toInt(0));
    default:
        return store(tag, index, static_cast<float>(value.toDouble(0.0)));
    }
}

bool isNumber(ArgType type)
{
    return type >= AT_BOOL && type <= AT_REAL;
}

bool isText(ArgType type)
{
    return type == AT_STR8 || type == AT_STR16 || type == AT_STR32;
}

template<typename Value>
Value load(const QByteArray& bytes, qint64 index)
{
    char found[sizeof(Value)] = {};
    for (qint64 i = 0; i < qint64{sizeof(Value)}; ++i) {
        if (const qint64 at = index * qint64{sizeof(Value)} + i; at < bytes.size())
            found[i] = bytes.at(static_cast<int>(at));
    }
    Value value;
    std::memcpy(&value, found, sizeof value);
    return value;
}

QString numberText(const QByteArray& bytes, ArgType type, qint64 index)
{
    switch (type) {
    case AT_BOOL:
        return load<quint8>(bytes, index) == 1 ? "true" : "false";
    case AT_INT8:
        return QString::number(load<qint8>(bytes, index));
    case AT_UINT8:
        return QString::number(load<quint8>(bytes, index));
    case AT_INT16:
        return QString::number(load<qint16>(bytes, index));
    case AT_UINT16:
        return QString::number(load<quint16>(bytes, index));
    case AT_UINT32:
        return QString::number(load<quint32>(bytes, index));
    case AT_INT32:
        return QString::number(load<qint32>(bytes, index));
    default:
        return QString::number(double{load<float>(bytes, index)}, 'g', 6);
    }
}

QString textOf(const QByteArray& bytes, ArgType type, int length)
{
    QByteArray text8;
    std::u16string text16;
    std::u32string text32;
    // Behind the end of `bytes` stands a zero, so that no text goes on there.
    for (int i = 0; i < length && i <= bytes.size(); ++i) {
        text8 += load<char>(bytes, i);
        text16 += load<char16_t>(bytes, i);
        text32 += load<char32_t>(bytes, i);
    }
    if (type == AT_STR8)
        return QString::fromUtf8(text8.constData());
    return type == AT_STR16 ? QString::fromUtf16(text16.c_str()) : QString::fromUcs4(text32.c_str());
}

} // namespace

QStringList SecondReading::listOf(QString& text)
{
    if (QJsonDocument::fromJson(text.toLatin1()).isNull() || !text.contains('[') || !text.contains(']'))
        return {};
    text.remove('[').remove(']');
    return text.split(',');
}

QByteArray SecondReading::simpleToTag(QByteArray tag, QString& text, ArgType type, int entries, int length)
{
    if (isText(type)) {
        storeText(tag, type, text.left(length));
    } else if (isNumber(type) && entries == 0) {
        storeElement(tag, 0, type, text);
    } else if (isNumber(type)) {
        const QStringList list = listOf(text);
        for (int i = 0; i < std::min(entries, list.size()); ++i)
            storeElement(tag, i, type, list.at(i));
    }
    return tag;
}

QByteArray SecondReading::objectToTag(QByteArray tag, QJsonObject& object, ArgType type, const QString& key,
                                      int entries)
{
    if (!isText(type) && !isNumber(type))
        return tag;
    const QJsonValue value = object[key];
    if (isText(type)) {
        storeText(tag, type, value.toString(""));
    } else if (entries == 0) {
        storeElement(tag, 0, type, value);
    } else {
        const QJsonArray array = value.toArray();
        int position = 0;
        // No element is shorter than a byte: what comes behind that many is dropped, unless a null moves it up.
        for (int i = 0; i < std::min(entries, std::max(array.size(), 0) + tag.size()); ++i) {
            const QJsonValue element = array.at(i);
            if (!element.isNull())
                storeElement(tag, position++, type, element);
        }
    }
    return tag;
}

QString SecondReading::tagToText(const QByteArray& bytes, ArgType type, int length, int entries)
{
    if (isText(type))
        return '"' + textOf(bytes, type, length) + '"';
    if (!isNumber(type))
        return "0";
    if (entries == 0)
        return numberText(bytes, type, 0);
    QString text = "[";
    for (int i = 0; i < entries; ++i)
        text += numberText(bytes, type, i) + ',';
    text.chop(1);
    return text + ']';
}

// The JSON parser of Qt 5.15 forgets the arrays and objects of keys that come a second time; the readings above use it
// as well. That the service's memory doesn't grow by it is proved in tests/unit.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libQt5Core.so\n";
}
