#pragma once

#include <QDateTime>
#include <QDebug>
#include <QString>

// For the dumps of verbose mode: each is one line on Qt's debug output.

// The beginning of every dump.
inline QDebug debugDump()
{
    QDebug line = qDebug().nospace().noquote();
    line << QDateTime::currentDateTime().toString("yyyy-MM-dd hh:mm:ss.zzz") << " MQTTClientManager ** ";
    return line;
}

// In quotes, with control characters as escapes: texts of files, records and messages come from outside.
inline QString quoted(const QString& text)
{
    QString result;
    QDebug(&result).nospace() << text;
    return result;
}
