#include "Entities/clientbroker.h"

#include "devicepaths.h"
#include "Entities/recordtext.h"
#include "logging.h"
#include "Services/mqttmanagerservices.h"
#include "Services/mqttStatusLogManager.h"
#include "tagmemory.h"

#include <cstring>
#include <QDir>

namespace {

// Intended: UTF-8 that is then taken for Latin-1, so a character beyond ASCII becomes two or more. The file has it
// right, and the next start reads that.
QString textOfPacket(const QString& text)
{
    return QString::fromLatin1(text.toUtf8().constData());
}

} // namespace

ClientBroker::ClientBroker()
    : m_StatusLogManager(MQTTStatusLogManager::instance()), m_Services(MQTTManagerServices::instance())
{
    const QDir candidates(DevicePaths::CandidateCaDirectory);
    m_caFilesList = candidates.entryList({"*.pem", "*.crt"}, QDir::Files, QDir::Unsorted);
    PLOG_DEBUG << QString("ClientBroker::ClientBroker() m_caFilesList %1 %2")
                      .arg(m_caFilesList.value(0), m_caFilesList.value(1));
}

void ClientBroker::CalcDataSize()
{
    LastWillDataSize =
        LastWillDataType == AT_NOTYPE ? -1 : m_Services->GetTypeSizeInBytes(LastWillDataType, LastWillDataLen, 1);
}

bool ClientBroker::IsBusy() const
{
    return m_Busy;
}

BrokerStatusBlock ClientBroker::statusBlock() const
{
    return {m_Connected, m_SessionPresent, m_ReturnCode, 0};
}

bool ClientBroker::UpdateClientBrokerStruct()
{
    // Again when another thread changed a part meanwhile: whoever writes last has written what stands.
    BrokerStatusBlock block{};
    bool isWritten = false;
    do {
        block = statusBlock();
        isWritten = TagMemory::Write(sizeof block, BrokerAddr, reinterpret_cast<const unsigned char*>(&block)) == 0;
    } while (block != statusBlock());
    PrintBrokerCfgStructDebug();
    return isWritten;
}

bool ClientBroker::ClearCfgStruct()
{
    m_Connected = 0;
    m_SessionPresent = 0;
    m_ReturnCode = 0;
    return UpdateClientBrokerStruct();
}

bool ClientBroker::UpdateClientBrokerConfigurationStruct(unsigned int address)
{
    using Record = CBrokerConfigurationStruct;
    RecordBytes<sizeof(Record)> record;
    record.putText(offsetof(Record, IPorUrl), IPorURL);
    record.putText(offsetof(Record, ClientID), ClientID);
    record.putText(offsetof(Record, Username), UserName);
    record.putText(offsetof(Record, Password), Password);
    record.putText(offsetof(Record, LastWillTopic), LastWillTopic);
    record.putNumber<quint8>(offsetof(Record, AutoConnect), AutoConnectFlag);
    record.putNumber<quint32>(offsetof(Record, ReconnectTrials), ConnectionInterval);
    record.putNumber<quint16>(offsetof(Record, Port), Port);
    record.putNumber<quint16>(offsetof(Record, KeepAliveTime), KeepAliveTime);
    record.putNumber<quint8>(offsetof(Record, CleanSessionFlag), CleanSessionFlag);
    // Intended: the level of encryption is never reported.
    record.putNumber<quint8>(offsetof(Record, Encryption), 0);

    m_Services->PrintClientBrokerStructDebug(record.as<Record>());

    constexpr unsigned short Half = sizeof(Record) / 2;
    const auto writeHalf = [&](unsigned int position, const unsigned char* bytes) {
        const bool written = TagMemory::Write(Half, position, bytes) == 0;
        PLOG_DEBUG << QString("Wrote stats cfg to address (%1) sizeof (%2)").arg(position).arg(Half);
        return written;
    };
    const bool first = writeHalf(address, record.bytes());
    const bool second = writeHalf(address + Half, record.bytes() + Half);
    // Intended: one half that arrived counts as success.
    return first || second;
}

void ClientBroker::TakeFirstPacket(const CBrokerConfigurationStruct& record)
{
    IPorURL = textOfPacket(fieldText(record.IPorUrl));
    Port = record.Port;
    AutoConnectFlag = record.AutoConnect != 0;
    ClientID = textOfPacket(fieldText(record.ClientID));
    UserName = textOfPacket(fieldText(record.Username));
}

void ClientBroker::TakeSecondPacket(const CBrokerConfigurationStruct& record)
{
    Password = textOfPacket(fieldText(record.Password));
    LastWillTopic = textOfPacket(fieldText(record.LastWillTopic));
    ConnectionInterval = record.ReconnectTrials;
    KeepAliveTime = record.KeepAliveTime;
    CleanSessionFlag = record.CleanSessionFlag != 0;
    // Intended: the level of encryption is the file's alone.
}
