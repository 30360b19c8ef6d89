#include "Entities/publisher.h"

#include "Entities/clientbroker.h"
#include "Entities/recordtext.h"
#include "logging.h"
#include "Records/publicationrecords.h"
#include "Services/mqttmanagerservices.h"
#include "tagmemory.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <QVarLengthArray>

namespace {

// What one read can bring, at most.
int readableSize(int size)
{
    return std::clamp(size, 0, int{std::numeric_limits<unsigned short>::max()});
}

} // namespace

PublicationStatusCodes Publisher::Publish()
{
    const bool bypass = m_PayloadFormat == PF_TRIGGERED_OP;
    const bool isConnected = m_cBroker && m_cBroker->IsConnected();
    PLOG_DEBUG << QString("m_cBroker->IsConnected() is '%1', bypass is '%2'").arg(isConnected).arg(bypass);
    PublicationStatusCodes result = PSC_ERROR_NOT_PUBLISHED;
    if (isConnected || bypass) {
        PLOG_DEBUG << QString("Size=%1  Address=%2").arg(m_DataSize).arg(m_DataAddress);
        if (bypass)
            return runTriggeredOperation();
        result = publishInFormat();
    }
    PLOG_DEBUG << QString("END rtnValue=%1").arg(int{result});
    return result;
}

PublicationStatusCodes Publisher::publishInFormat()
{
    switch (m_PayloadFormat) {
    case PF_BUFFER:
        return publishTagBytes();
    case PF_JSON:
        return publishJson();
    case PF_PROTOBUF:
        return publishProtobuf();
    default:
        return PSC_ERROR_NOT_PUBLISHED;
    }
}

PublicationStatusCodes Publisher::publishTagBytes()
{
    if (m_DataSize > SIZEOF_PUBLISH_BUFFER)
        return PSC_ERROR_DATA_BIG_THAN_BUFF;
    const int size = std::max(m_DataSize, 0);
    TagMemory::Read(static_cast<unsigned short>(size), m_DataAddress,
                    reinterpret_cast<unsigned char*>(m_PublishBuffer.data()));
    return publishBuffer(size);
}

PublicationStatusCodes Publisher::publishJson()
{
    QVarLengthArray<char, StackTagBytes> data(readableSize(m_DataSize));
    std::fill(data.begin(), data.end(), '\0');
    const QByteArray text = assembleJsonByteArrayFromBuffer(data.data(), m_DataSize);
    if (text.isNull()) {
        m_PublishBuffer.fill('\0');
        return PSC_ERROR_DATA_BIG_THAN_BUFF;
    }
    return publishBuffer(text.size());
}

QByteArray Publisher::assembleJsonByteArrayFromBuffer(char* buffer, int size)
{
    TagMemory::Read(static_cast<unsigned short>(std::max(size, 0)), m_DataAddress,
                    reinterpret_cast<unsigned char*>(buffer));
    BoundedText text(m_PublishBuffer.data(), m_PublishBuffer.size());
    if (m_DataType == AT_STRUCT)
        appendMembers(text, buffer, readableSize(size));
    else
        m_Services->AppendTagText(text, buffer, readableSize(size), m_DataType, m_DataLen, m_Entries);
    return text.fits() ? QByteArray::fromRawData(text.text().data(), static_cast<int>(text.text().size()))
                       : QByteArray();
}

void Publisher::appendMembers(BoundedText& text, const char* bytes, int size)
{
    if (!m_JsonLayout.isOf(m_DataMembers))
        m_JsonLayout = JsonLayout(m_DataMembers);
    m_JsonLayout.forEachMember([&](std::string_view key, const JsonLayout::Member& member) {
        const qint64 offset = std::min(qint64{member.offset}, qint64{size});
        text.append(key);
        m_Services->AppendTagText(text, bytes + offset, size - offset, member.type, member.length, member.entries);
        return text.fits();
    });
    text.append("}");
}

PublicationStatusCodes Publisher::publishBuffer(int payloadLength)
{
    PrepareTopic();
    MQTTClient_deliveryToken token = 0;
    const int result =
        m_cBroker->Publish(m_TopicUtf8, m_PublishBuffer.data(), payloadLength, m_QoS, m_RetainFlag, token);
    if (result == PSC_OK) {
        // A message that is acknowledged already has been looked for in vain. Its token would stay, and would meet
        // another message of the same number after the next connection.
        if (isDeliveryTracked() && m_cBroker->isMessageInFlight())
            m_NewTokens.put(token);
        PLOG_DEBUG << QString("Publication '%4' Publish Size=%1  Address=%2  Data=%3  Token=%5  Topic=%6  "
                              "SIZEOF_PUBLISH_BUFFER=%7")
                          .arg(QString::number(payloadLength), QString::number(m_DataAddress),
                               QString::fromUtf8(m_PublishBuffer.data(),
                                                 static_cast<int>(qstrnlen(m_PublishBuffer.data(), payloadLength))),
                               m_Name, QString::number(token), m_Topic, QString::number(SIZEOF_PUBLISH_BUFFER));
    }
    std::fill_n(m_PublishBuffer.begin(), payloadLength, '\0');
    return static_cast<PublicationStatusCodes>(result);
}

void Publisher::PrepareTopic()
{
    if (m_TopicUtf8.isNull())
        m_TopicUtf8 = m_Topic.toUtf8();
}

bool Publisher::isDeliveryTracked() const
{
    return m_QoS != QOS_AT_MOST_ONCE && m_ReceiveAddress != NO_RECEIVE_ADDRESS;
}

void Publisher::DeliveryComplete(int token)
{
    if (!isDeliveryTracked())
        return;
    m_NewTokens.takeInto(m_Tokens);
    if (!m_Tokens.removeOne(token))
        return;
    PLOG_DEBUG << QString("Delivery complete for '%1', token is (%2)").arg(m_Name, QString::number(token));
    const unsigned char acknowledged = 1;
    TagMemory::Write(sizeof acknowledged, m_ReceiveAddress, &acknowledged);
}

bool Publisher::UpdatePublisherConfigurationStruct(unsigned int address)
{
    using Record = PublicationConfigurationStruct;
    RecordBytes<sizeof(Record)> record;
    if (!record.putTextInField(offsetof(Record, Topic), std::size(Record{}.Topic), m_Topic)) {
        PLOG_WARNING << QString("publication '%1': its topic is cut to %2 characters in its configuration record")
                            .arg(m_Name, QString::number(std::size(Record{}.Topic) - 1));
    }
    record.putNumber<quint8>(offsetof(Record, QoS), m_QoS);
    record.putNumber<quint8>(offsetof(Record, PayloadFormat), m_PayloadFormat);
    record.putNumber<quint8>(offsetof(Record, Retained), m_RetainFlag);
    m_Services->PrintPublicationStructDebug(record.as<Record>());
    PLOG_DEBUG << QString("Wrote stats cfg to address (%1) sizeof (%2)").arg(address).arg(sizeof(Record));
    return TagMemory::Write(sizeof(Record), address, record.bytes()) == 0;
}

void Publisher::TakeConfiguration(const PublicationConfigurationStruct& record)
{
    m_RetainFlag = record.Retained != 0;
    m_PayloadFormat = record.PayloadFormat;
    m_QoS = record.QoS;
    SetTopic(fieldText(record.Topic));
    m_TopicUtf8 = QByteArray();
}
