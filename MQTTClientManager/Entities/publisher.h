#pragma once

#include "Entities/jsonlayout.h"
#include "Entities/mqttcallerbase.h"
#include "Entities/tokenhandover.h"
#include "Records/publicationrecords.h"
#include "Records/statuscodes.h"
#include "Utils/boundedtext.h"

#include <array>
#include <QByteArray>

// Largest payload of a publication, in bytes.
inline constexpr int SIZEOF_PUBLISH_BUFFER = 5000;

// m_ReceiveAddress of a publication without acknowledgement byte.
inline constexpr unsigned int NO_RECEIVE_ADDRESS = 0xFFFFFFFF;

// m_PerInterval of a publication that is sent on request only.
inline constexpr int NO_PERIOD = -1;

// One configured publication.
//   publisher.cpp          publishing, deliveries, the configuration record
//   publisher_scripts.cpp  the formats that start a script of the device
// A periodic one is published by the main thread, one on request by the request thread; no publication ever by both.
// Deliveries come on the client library's thread.
class Publisher : public MQTTCallerBase
{
public:
    // Reads the tag, forms the payload and hands it to the client library. Nothing is kept for later: what can't be
    // published now is lost, and the caller's next call sends the data of that moment.
    PublicationStatusCodes Publish();

    // Forms the topic as the client library wants it, once. Publish does so as well; ahead of the first publication the
    // topics of all come to lie side by side in memory.
    void PrepareTopic();

    void DeliveryComplete(int token) override;

    // Reads the tag into `buffer` and returns it as JSON: the bare value, or an object of a struct's members in the
    // order of the file. `buffer` holds `size` zeroed bytes, or 65,535 where `size` is more: only the low 16 bits of a
    // size can be read. The text lies in m_PublishBuffer; it is null when it is longer than a payload may be.
    QByteArray assembleJsonByteArrayFromBuffer(char* buffer, int size);

    // Writes the 516-byte configuration record; true when tag memory took it.
    bool UpdatePublisherConfigurationStruct(unsigned int address);
    // Takes over what the record holds. While paused only: nothing else may use the entity.
    void TakeConfiguration(const PublicationConfigurationStruct& record);
    void PrintCallerEntityDebug() override;

    // What every publication reads stands ahead of the buffer, close together.
    bool m_RetainFlag = false;
    int m_PerInterval = 0; // ms
    unsigned int m_ReceiveAddress = NO_RECEIVE_ADDRESS;
    std::array<char, SIZEOF_PUBLISH_BUFFER> m_PublishBuffer{}; // all zero between publications
    // Tokens that wait for their delivery, in order of publication. Belongs to the delivery thread; the publishing
    // thread passes new ones through m_NewTokens.
    QList<int> m_Tokens;
    TokenHandover m_NewTokens;

private:
    [[nodiscard]] PublicationStatusCodes publishInFormat();
    [[nodiscard]] PublicationStatusCodes publishTagBytes();
    [[nodiscard]] PublicationStatusCodes publishJson();
    [[nodiscard]] PublicationStatusCodes publishProtobuf();
    [[nodiscard]] PublicationStatusCodes runTriggeredOperation();
    [[nodiscard]] bool triggerOperation();
    [[nodiscard]] bool writeOperationResult();
    [[nodiscard]] QString tagText() const;
    void appendMembers(BoundedText& text, const char* bytes, int size);
    [[nodiscard]] PublicationStatusCodes publishBuffer(int payloadLength);
    [[nodiscard]] bool isDeliveryTracked() const;

    QByteArray m_TopicUtf8;  // m_Topic as the client library wants it; see PrepareTopic
    JsonLayout m_JsonLayout; // of m_DataMembers
};
