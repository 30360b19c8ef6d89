#include "devicepaths.h"
#include "logging.h"
#include "mqttclientmanager.h"
#include "proofrunner.h"
#include "Services/mqttmanagerservices.h"

#include <array>
#include <cstring>
#include <QByteArray>

namespace {

constexpr int UnknownID = 999;
constexpr int SharedID = 6; // of a broker, a publication and a subscription of the test's configuration
constexpr std::uint16_t UnknownRequestID = 9999;
constexpr std::uint32_t StatusAddress = 8208;

// The bytes of a tag that holds these values.
template<typename Number, std::size_t Count>
QByteArray tagOf(const Number (&values)[Count])
{
    return {reinterpret_cast<const char*>(values), static_cast<int>(sizeof values)};
}

struct Conversion
{
    ArgType type;
    QByteArray tag;
    int length;
    int entries;
    const char* text;
};

std::vector<Conversion> conversions()
{
    const bool bools[] = {true, false, true};
    const qint8 int8s[] = {-12, 1, 2, 3, 120};
    const quint8 uint8s[] = {255, 0, 13, 66};
    const qint16 int16s[] = {-2020, 800, 0, -555, 777};
    const quint16 uint16s[] = {65000, 0, 1, 49123};
    const qint32 int32s[] = {-100000, 800, 0, -123456, 777};
    const quint32 uint32s[] = {300000, 0, 1, 300001};
    const float reals[] = {3.14F, 2.1F, 15.0F};
    return {
        {AT_BOOL, tagOf(bools), NO_DATA_LEN, 0, "true"},
        {AT_BOOL, tagOf(bools), NO_DATA_LEN, 3, "[true,false,true]"},
        {AT_INT8, tagOf(int8s), NO_DATA_LEN, 0, "-12"},
        {AT_INT8, tagOf(int8s), NO_DATA_LEN, 5, "[-12,1,2,3,120]"},
        {AT_UINT8, tagOf(uint8s), NO_DATA_LEN, 0, "255"},
        {AT_UINT8, tagOf(uint8s), NO_DATA_LEN, 4, "[255,0,13,66]"},
        {AT_INT16, tagOf(int16s), NO_DATA_LEN, 0, "-2020"},
        {AT_INT16, tagOf(int16s), NO_DATA_LEN, 5, "[-2020,800,0,-555,777]"},
        {AT_UINT16, tagOf(uint16s), NO_DATA_LEN, 0, "65000"},
        {AT_UINT16, tagOf(uint16s), NO_DATA_LEN, 4, "[65000,0,1,49123]"},
        {AT_INT32, tagOf(int32s), NO_DATA_LEN, 0, "-100000"},
        {AT_INT32, tagOf(int32s), NO_DATA_LEN, 5, "[-100000,800,0,-123456,777]"},
        {AT_UINT32, tagOf(uint32s), NO_DATA_LEN, 0, "300000"},
        {AT_UINT32, tagOf(uint32s), NO_DATA_LEN, 4, "[300000,0,1,300001]"},
        {AT_REAL, tagOf(reals), NO_DATA_LEN, 0, "3.14"},
        {AT_REAL, tagOf(reals), NO_DATA_LEN, 3, "[3.14,2.1,15]"},
        {AT_STR8, tagOf("plant"), 5, 0, "\"plant\""},
        {AT_STR16, tagOf(u"plant"), 5, 0, "\"plant\""},
        {AT_STR32, tagOf(U"plant"), 5, 0, "\"plant\""},
    };
}

// One run of the self-test: its steps, and the reporter that they tell.
class SelfTest
{
public:
    SelfTest(MQTTClientManager& manager, MQTTManagerServices& services, ProofRunner& reporter)
        : m_manager(manager), m_services(services), m_reporter(reporter)
    {
    }

    void run()
    {
        testLookups();
        testHandlers();
        testSizes();
        testAddresses();
        testTypeNames();
        testConversions();
    }

private:
    void report(const QString& description, bool passed)
    {
        m_reporter.ReportOnTest(description.toUtf8().constData(), "", passed);
    }

    void testLookups()
    {
        report("look-up of an unknown broker", m_manager.getClientBrokerIdxbyUniqueID(UnknownID) == -1);
        report("look-up of an unknown publication", m_manager.getPublisherbyIdxUniqueID(UnknownID) == -1);
        report("look-up of an unknown subscription", m_manager.getSubscriberbIdxyUniqueID(UnknownID) == -1);
        report("look-up of broker 6", m_manager.getClientBrokerIdxbyUniqueID(SharedID) == 3);
        report("look-up of publication 6", m_manager.getPublisherbyIdxUniqueID(SharedID) == 4);
        report("look-up of subscription 6", m_manager.getSubscriberbIdxyUniqueID(SharedID) == 5);
    }

    void testHandlers()
    {
        using Handler = StatusCodes (MQTTClientManager::*)(const MQTTRequestMsg*);
        struct NamedHandler
        {
            const char* name;
            Handler handler;
        };
        constexpr NamedHandler Handlers[] = {
            {"HandleSubscribeToTopic", &MQTTClientManager::HandleSubscribeToTopic},
            {"HandleSubscribeAll", &MQTTClientManager::HandleSubscribeAll},
            {"HandleUnSubscribeToTopic", &MQTTClientManager::HandleUnSubscribeToTopic},
            {"HandleUnSubscribeAll", &MQTTClientManager::HandleUnSubscribeAll},
            {"HandleConnectClientBroker", &MQTTClientManager::HandleConnectClientBroker},
            {"HandleDisConnectClientBroker", &MQTTClientManager::HandleDisConnectClientBroker},
            {"HandleSendAPeriodic", &MQTTClientManager::HandleSendAPeriodic},
            {"HandleGetClientBrokerCfg", &MQTTClientManager::HandleGetClientBrokerCfg},
            {"HandleGetSubscriptionCfg", &MQTTClientManager::HandleGetSubscriptionCfg},
            {"HandleGetPublicationCfg", &MQTTClientManager::HandleGetPublicationCfg},
            {"HandleSetPublicationPublishState", &MQTTClientManager::HandleSetPublicationPublishState},
        };
        MQTTRequestMsg request{};
        request.uniqueID = UnknownRequestID;
        request.statusAddress = StatusAddress;
        for (const NamedHandler& each : Handlers)
            report(QString("%1 of an unknown ID").arg(each.name),
                   (m_manager.*each.handler)(&request) == SC_AC_ERROR_INVALID_ID);
    }

    void testSizes()
    {
        struct Size
        {
            ArgType type;
            int length;
            int entries;
            int bytes;
        };
        constexpr Size Sizes[] = {
            {AT_NOTYPE, NO_DATA_LEN, 1, -1},
            {AT_STRUCT, NO_DATA_LEN, 1, -1},
            {AT_BOOL, NO_DATA_LEN, 1, 1},
            {AT_INT8, NO_DATA_LEN, 1, 1},
            {AT_UINT8, NO_DATA_LEN, 1, 1},
            {AT_INT16, NO_DATA_LEN, 1, 2},
            {AT_UINT16, NO_DATA_LEN, 1, 2},
            {AT_UINT32, NO_DATA_LEN, 1, 4},
            {AT_INT32, NO_DATA_LEN, 1, 4},
            {AT_REAL, NO_DATA_LEN, 1, 4},
            {AT_STR8, 5, 1, 6},
            {AT_STR16, 5, 1, 12},
            {AT_STR32, 5, 1, 24},
            {AT_INT8, NO_DATA_LEN, 5, 5},
        };
        for (const Size& each : Sizes)
            report(QString("size of type %1, length %2, entries %3").arg(each.type).arg(each.length).arg(each.entries),
                   m_services.GetTypeSizeInBytes(each.type, each.length, each.entries) == each.bytes);
    }

    void testAddresses()
    {
        report("position of operand address 65536", m_services.OperandAddr2OffsetConversion(65536) == 0x7F410000);
    }

    void testTypeNames()
    {
        struct Name
        {
            ArgType type;
            const char* text;
        };
        constexpr Name Names[] = {
            {AT_INT8, "AT_INT8"},   {AT_UINT8, "AT_UINT8"},   {AT_INT16, "AT_INT16"},   {AT_UINT16, "AT_UINT16"},
            {AT_INT32, "AT_INT32"}, {AT_UINT32, "AT_UINT32"}, {AT_REAL, "AT_REAL"},     {AT_STR8, "AT_STR8"},
            {AT_STR16, "AT_STR16"}, {AT_STR32, "AT_STR32"},   {AT_STRUCT, "AT_STRUCT"}, {AT_BOOL, "AT_BOOL"},
        };
        for (const Name& each : Names)
            report(QString("name of %1").arg(each.text), m_services.GetTypeName(each.type) == each.text);
    }

    void testConversions()
    {
        for (Conversion& each : conversions())
            report(QString("%1 as text, entries %2").arg(m_services.GetTypeName(each.type)).arg(each.entries),
                   m_services.BufferToQStringConversion(each.tag.data(), each.type, each.length, each.entries) ==
                       each.text);
    }

    MQTTClientManager& m_manager;
    MQTTManagerServices& m_services;
    ProofRunner& m_reporter;
};

} // namespace

void MQTTClientManager::RunAutoTest(bool enabled)
{
    if (!enabled)
        return;
    PLOG_DEBUG << "Enter function";
    m_proofRunner->InitAutoTest("MQTTClientManager", DevicePaths::SelfTestResults);
    SelfTest(*this, *m_services, *m_proofRunner).run();
    m_proofRunner->PrintSummary();
    PLOG_DEBUG << "End function";
}
