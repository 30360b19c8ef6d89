#pragma once

#include "Records/argtype.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

// The rules of the conversions read a second time, as plainly as they can be written down and without a thought for
// time or memory: what the service does in another way must come to the same.
namespace SecondReading {

// What stands in `tag` after the conversion, of which all that would lie behind the end of `tag` is dropped.
QByteArray simpleToTag(QByteArray tag, QString& text, ArgType type, int entries, int length);
QByteArray objectToTag(QByteArray tag, QJsonObject& object, ArgType type, const QString& key, int entries);

QStringList listOf(QString& text);

// `bytes` count as zero behind their end.
QString tagToText(const QByteArray& bytes, ArgType type, int length, int entries);

} // namespace SecondReading
