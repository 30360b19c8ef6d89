#include "Utils/rwjson.h"

#include "Utils/filecontent.h"

#include <algorithm>
#include <QJsonDocument>
#include <QTextStream>
#include <QVariantMap>

namespace {

// Settings are small; more than this is something else.
constexpr qint64 LargestFile = 16 << 20; // bytes

// What the file holds; an empty object where it is no JSON object.
QJsonObject parseObject(QFile& file)
{
    if (file.size() > LargestFile)
        return {};
    QTextStream stream(&file);
    return QJsonDocument::fromJson(stream.readAll().toLocal8Bit()).object();
}

bool writeObject(const QString& fileName, const QJsonObject& object)
{
    return FileContent::replaceContent(fileName, QJsonDocument(object).toJson());
}

template<typename Change>
bool changeObject(const QString& fileName, Change change)
{
    QJsonObject object;
    QFile file(fileName);
    if (file.exists()) {
        // What is too large to be read would be lost.
        if (!FileContent::open(file, QIODevice::ReadWrite) || file.size() > LargestFile)
            return false;
        object = parseObject(file);
        file.close();
    }
    change(object);
    return writeObject(fileName, object);
}

} // namespace

QString RWJson::readFromJsonFile(const QString& fileName, QString key)
{
    const QVariantMap values = readJsonObjectFromJsonFile(fileName).toVariantMap();
    const auto found = values.constFind(key);
    return found == values.constEnd() ? QString() : found->toString();
}

bool RWJson::readBoolFromJsonFile(const QString& fileName, QString key, bool defaultValue)
{
    const QString value = readFromJsonFile(fileName, key);
    return value.isEmpty() ? defaultValue : value.contains("true");
}

int RWJson::readIntFromJsonFile(const QString& fileName, QString key, int defaultValue)
{
    bool isNumber = false;
    const int value = readFromJsonFile(fileName, key).toInt(&isNumber, 10);
    return isNumber ? value : defaultValue;
}

QStringList RWJson::readValuesFromJsonFile(const QString& fileName, QStringList keys)
{
    const QVariantMap values = readJsonObjectFromJsonFile(fileName).toVariantMap();
    QStringList texts;
    for (const QString& key : qAsConst(keys))
        texts.append(values.contains(key) ? values.value(key).toString() : QStringLiteral("-1"));
    return texts;
}

QJsonObject RWJson::readJsonObjectFromJsonFile(const QString& fileName)
{
    QFile file(fileName);
    if (!FileContent::open(file, QIODevice::ReadOnly))
        return {};
    return parseObject(file);
}

bool RWJson::writeToJsonFile(const QString& fileName, QString key, QString value)
{
    return changeObject(fileName, [&](QJsonObject& object) { object.insert(key, value); });
}

bool RWJson::writeBoolToJsonFile(const QString& fileName, QString key, bool value)
{
    return changeObject(fileName, [&](QJsonObject& object) { object.insert(key, value); });
}

bool RWJson::writeIntToJsonFile(const QString& fileName, QString key, int value)
{
    return changeObject(fileName, [&](QJsonObject& object) { object.insert(key, value); });
}

bool RWJson::writeValuesToJsonFile(const QString& fileName, QStringList keys, QStringList values)
{
    return changeObject(fileName, [&](QJsonObject& object) {
        const int pairs = std::min(keys.size(), values.size());
        for (int i = 0; i < pairs; ++i)
            object.insert(keys.at(i), values.at(i));
    });
}

bool RWJson::writeJsonObjectToJsonFile(const QString& fileName, QJsonObject& object)
{
    return writeObject(fileName, object);
}

bool RWJson::removeKeyFromJsonFile(const QString& fileName, QString key)
{
    return changeObject(fileName, [&](QJsonObject& object) { object.remove(key); });
}
