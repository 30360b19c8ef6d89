#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <QString>
#include <QUuid>

// One message that waits in the queue of a buffered subscription: a copy of its own of all that is needed later.
struct MQTTMessage
{
    // Null when there is no memory for it. The payload may be null when its length is 0 or less.
    static std::unique_ptr<MQTTMessage> copyOf(const char* topic, int topicLength, const void* payload,
                                               int payloadLength)
    {
        try {
            auto message = std::make_unique<MQTTMessage>();
            if (message->take(topic, topicLength, payload, payloadLength > 0 ? payloadLength : 0))
                return message;
        } catch (const std::bad_alloc&) {
            // the same as the other shortages of memory
        }
        return nullptr;
    }

    MQTTMessage() = default;
    MQTTMessage(const MQTTMessage&) = delete;
    MQTTMessage& operator=(const MQTTMessage&) = delete;
    ~MQTTMessage()
    {
        std::free(topicName);
        std::free(Payload);
    }

    QString Guid; // tells messages apart in the debug dump
    char* topicName = nullptr;
    int topicLen = 0;
    char* Payload = nullptr; // with a zero byte behind it
    int PayloadLen = 0;

private:
    bool take(const char* topic, int topicLength, const void* payload, int payloadLength)
    {
        Guid = QUuid::createUuid().toString(QUuid::WithoutBraces);
        topicName = strdup(topic);
        topicLen = topicLength;
        const auto length = static_cast<std::size_t>(payloadLength);
        Payload = static_cast<char*>(std::malloc(length + 1));
        PayloadLen = payloadLength;
        if (!topicName || !Payload)
            return false;
        if (length > 0)
            std::memcpy(Payload, payload, length);
        Payload[length] = '\0';
        return true;
    }
};
