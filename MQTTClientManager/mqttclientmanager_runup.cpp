#include "mqttclientmanager.h"

#include "Communication/cominterface.h"
#include "devicepaths.h"
#include "logging.h"
#include "processending.h"
#include "Records/linkstates.h"
#include "Records/subscriptionrecords.h"
#include "Services/mqttmanagerservices.h"
#include "Services/mqttscheduler.h"
#include "Utils/scriptrunner.h"

#include <array>
#include <QSet>
#include <thread>

namespace {

// Entries of one registration packet.
constexpr int MAX_REG_PER_PACKET = 150;

// Tag memory's own constants of a registration; only passed through.
constexpr unsigned long RegistrationKind = 300;
constexpr unsigned char RegistrationArgument = 10;

// A tag of more bytes than this takes up further entries of its packet.
constexpr int BytesPerEntry = 1000;

// How long the end of the process waits for a registration that is under way.
constexpr auto RegistrationPatience = std::chrono::seconds(1);

constexpr auto PublicationWatchPeriod = std::chrono::seconds(1);

constexpr auto ClockCheckTimeout = std::chrono::seconds(30);

// The tags of a registration, each address once: the first length that is given for an address holds.
class OperandCollector
{
public:
    explicit OperandCollector(QVector<HdrOperandData_t>& operands) : m_operands(operands) {}

    void add(int length, unsigned int address)
    {
        if (m_addresses.contains(address))
            return;
        m_addresses.insert(address);
        addAlways(length, address);
    }

    void addAlways(int length, unsigned int address)
    {
        m_operands.append({static_cast<unsigned short>(length), 0, address});
    }

private:
    QVector<HdrOperandData_t>& m_operands;
    QSet<unsigned int> m_addresses;
};

} // namespace

bool MQTTClientManager::ManageTagsRegistration()
{
    // Set ahead of the first look at the process's end: unregisterTags waits for it after the end has begun.
    m_isRegistering = true;
    PLOG_DEBUG << "FIRED";
    collectOperands();
    m_services->PrintRegisteredTagsDebug(m_operands, m_operands.size());
    int next = 0;
    do {
        next = HandleRcRegister(next);
        ++m_numOfRegistrations;
    } while (next < m_operands.size() && !ProcessEnding::hasBegun());
    PLOG_DEBUG << QString("m_numOfRegistrations:%1, END").arg(m_numOfRegistrations);
    m_isRegistering = false;
    return true;
}

void MQTTClientManager::collectOperands()
{
    m_operands.clear();
    OperandCollector collector(m_operands);
    for (const Publisher& publication : qAsConst(m_publications))
        collector.add(publication.m_DataSize, publication.m_DataAddress);
    for (const Subscriber& subscription : qAsConst(m_subscriptions)) {
        if (subscription.m_BufferedFlag)
            collector.add(sizeof(SubscriberStatusStruct::m_ReceivedBit),
                          subscription.m_SubAddr + offsetof(SubscriberStatusStruct, m_ReceivedBit));
    }
    for (const ClientBroker& broker : qAsConst(m_clientBrokers)) {
        if (broker.LastWillAddr != -1)
            collector.add(broker.LastWillDataSize, static_cast<unsigned int>(broker.LastWillAddr));
    }
    for (const unsigned int address : LinkStatePositions)
        collector.addAlways(1, address);
}

int MQTTClientManager::HandleRcRegister(int iOperand)
{
    std::array<HdrOperandData_t, MAX_REG_PER_PACKET> destSection{};
    int add = 0;
    quint16 bytes = 0; // wraps at 16 bits
    int count = 0;
    do {
        const HdrOperandData_t& operand = m_operands.at(iOperand + count);
        if (operand.length > BytesPerEntry) {
            const int furtherEntries = operand.length / BytesPerEntry;
            add += furtherEntries;
            PLOG_DEBUG << QString("add:%1 destSection:%2, MAX_REG_PER_PACKET:%3")
                              .arg(furtherEntries)
                              .arg(count)
                              .arg(MAX_REG_PER_PACKET);
        }
        destSection[count] = operand;
        bytes = static_cast<quint16>(bytes + operand.length);
        ++count;
    } while (add + count < MAX_REG_PER_PACKET && iOperand + count < m_operands.size());

    PLOG_DEBUG << "RegSync  destSection: " << count;
    const unsigned int regID = TagMemory::RegSync(RegistrationKind, destSection.data(),
                                                  static_cast<unsigned char>(count), RegistrationArgument);
    if (regID != 0) {
        m_regIDs.append(regID);
    } else {
        PLOG_DEBUG << "TagMemory::RegSync Error RegID: " << regID;
    }
    PLOG_DEBUG << QString("iOperand:%1, Size:%2, RegID:%3 END").arg(iOperand + count).arg(bytes).arg(regID);
    return iOperand + count;
}

void MQTTClientManager::unregisterTags()
{
    // The run-up may still be registering: its last packet belongs to the list as well.
    const auto deadline = std::chrono::steady_clock::now() + RegistrationPatience;
    while (m_isRegistering) {
        if (std::chrono::steady_clock::now() >= deadline)
            return; // the controller sees the process end
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (const unsigned int id : qAsConst(m_regIDs)) {
        TagMemory::UnRegSync(id, RegistrationArgument);
        PLOG_DEBUG << m_logIndent << "Unregister operands";
    }
}

StatusCodes MQTTClientManager::ManageClientBrokers()
{
    PLOG_DEBUG << "FIRED";
    QList<ClientBroker*> brokersToRetry;
    for (ClientBroker& broker : m_clientBrokers) {
        if (ProcessEnding::hasBegun())
            break;
        if (!broker.AutoConnectFlag)
            continue;
        if (broker.Connect() != CB_OK && broker.ConnectionInterval != 0)
            brokersToRetry.append(&broker);
    }
    m_scheduler->SetPeriodicConnectAttempt(brokersToRetry);
    return SC_AC_OK;
}

StatusCodes MQTTClientManager::ManageSubscriptions(bool subscribeAtBoot)
{
    PLOG_DEBUG << "FIRED";
    StatusCodes result = SC_AC_OK;
    QList<Subscriber*> bufferedSubscriptions;
    for (Subscriber& subscription : m_subscriptions) {
        if (ProcessEnding::hasBegun())
            break;
        if (subscribeAtBoot && subscription.m_SubscribeAtBootTime && subscription.Subscribe() != SSC_OK)
            result = SC_AC_ERROR_SUBSCRIPTION_FAILED;
        if (!subscription.m_BufferedFlag)
            continue;
        PLOG_DEBUG << m_logIndent
                   << QString("'%1' with ID (%2) added to bufferdModeSubscriptionsList")
                          .arg(subscription.m_Name, QString::number(subscription.m_UniqueID));
        bufferedSubscriptions.append(&subscription);
    }
    m_scheduler->SetBufferdModeSubscriptions(bufferedSubscriptions);
    return result;
}

bool MQTTClientManager::ManagePeriodicPublications()
{
    PLOG_DEBUG << "FIRED";
    QList<Publisher*> periodicPublications;
    for (Publisher& publication : m_publications) {
        if (publication.m_PerInterval == NO_PERIOD)
            continue;
        PLOG_DEBUG << m_logIndent
                   << QString("'%1' with ID (%2) added to periodicPublisherList")
                          .arg(publication.m_Name, QString::number(publication.m_UniqueID));
        periodicPublications.append(&publication);
    }
    m_scheduler->SetPeriodicalPublications(periodicPublications);
    return true;
}

void MQTTClientManager::StartListeningToRequestsAndScheduledActions()
{
    m_scheduler->RunScheduler();
    if (ProcessEnding::hasBegun())
        return;
    m_comInterface->startThread();
    std::thread([this] { watchPublications(); }).detach();
}

void MQTTClientManager::watchPublications()
{
    while (!ProcessEnding::hasBegun()) {
        std::this_thread::sleep_for(PublicationWatchPeriod);
        const auto brokers = m_clientBrokers.current();
        for (ClientBroker& broker : *brokers)
            broker.endStalledPublication();
    }
}

StatusCodes MQTTClientManager::CheckSystemTime()
{
    PLOG_DEBUG << "FIRED";
    const auto output = ScriptRunner::run(DevicePaths::ClockCheckScript, {}, ClockCheckTimeout);
    if (!output)
        return SC_AC_OK; // no answer counts as a clock that is set
    // Intended: the digit anywhere in the output will do.
    if (QString::fromUtf8(*output).contains('1')) {
        PLOG_DEBUG << "System time OK";
        return SC_AC_OK;
    }
    PLOG_DEBUG << "System time error, need to set RTC (local clock)";
    return SC_AC_ERROR_SYSTEM_TIME;
}
