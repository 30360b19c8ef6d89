#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

// Flat JSON settings files: one object whose members are the settings. Each call opens and closes the file by itself
// and nothing is locked: a file that another process is just writing reads as an empty object.
class RWJson
{
public:
    // The value of a top-level key as text; a null string when the file, the object or the key is missing.
    static QString readFromJsonFile(const QString& fileName, QString key);
    static bool readBoolFromJsonFile(const QString& fileName, QString key, bool defaultValue);
    static int readIntFromJsonFile(const QString& fileName, QString key, int defaultValue);
    // One text for each key, in the order of the keys; "-1" for a key that is missing.
    static QStringList readValuesFromJsonFile(const QString& fileName, QStringList keys);
    static QJsonObject readJsonObjectFromJsonFile(const QString& fileName);

    // The writers keep the other keys of the file; one that holds no JSON object, or is missing, begins anew. They
    // return false when the file can't be opened or written; then it holds what it held, also on a full disk.
    static bool writeToJsonFile(const QString& fileName, QString key, QString value);
    static bool writeBoolToJsonFile(const QString& fileName, QString key, bool value);
    static bool writeIntToJsonFile(const QString& fileName, QString key, int value);
    // As many pairs as both lists have.
    static bool writeValuesToJsonFile(const QString& fileName, QStringList keys, QStringList values);
    // Replaces all that the file holds.
    static bool writeJsonObjectToJsonFile(const QString& fileName, QJsonObject& object);
    static bool removeKeyFromJsonFile(const QString& fileName, QString key);
};
