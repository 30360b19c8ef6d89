#include "Entities/mqttmessage.h"
#include "Services/mqttmanagerservices.h"

#include <QDateTime>
#include <QDebug>

namespace {

// What of a text is shown, in bytes.
constexpr uint ShownBytes = 4096;

// The beginning of every dump.
QDebug dump()
{
    QDebug line = qDebug().nospace().noquote();
    line << QDateTime::currentDateTime().toString("yyyy-MM-dd hh:mm:ss.zzz") << " MQTTClientManager ** ";
    return line;
}

// In quotes, with control characters as escapes: it may come from outside.
QString quoted(const char* bytes, int length)
{
    const uint shown = qstrnlen(bytes, qMin(static_cast<uint>(qMax(length, 0)), ShownBytes));
    QString text;
    QDebug(&text).nospace() << QString::fromUtf8(bytes, static_cast<int>(shown));
    return text;
}

} // namespace

void MQTTManagerServices::PrintMQTTMessageDebug(MQTTMessage* message)
{
    if (!m_verboseMode || !message)
        return;
    dump() << "MQTTMessage members are: Guid=" << message->Guid
           << ", topicName=" << quoted(message->topicName, static_cast<int>(ShownBytes))
           << ", topicLen=" << message->topicLen << ", Payload=" << quoted(message->Payload, message->PayloadLen)
           << ", PayloadLen=" << message->PayloadLen;
}
