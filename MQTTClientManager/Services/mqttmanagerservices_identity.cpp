#include "Services/mqttmanagerservices.h"

#include "devicepaths.h"
#include "logging.h"
#include "Records/linkstates.h"
#include "tagmemory.h"
#include "Utils/rwjson.h"
#include "Utils/scriptrunner.h"

namespace {

const QString NameVariable = QStringLiteral("{PLC.NAME}");
const QString SerialVariable = QStringLiteral("{PLC.SN}");
const QString MacVariable = QStringLiteral("{PLC.MAC}");

// What a cached text holds until its script has answered.
const QString NotKnownYet = QStringLiteral("00000000000");

constexpr auto ScriptTimeout = std::chrono::seconds(30);

// A value that holds its own variable would be expanded for ever, and can grow without bound meanwhile.
constexpr int MostExpansions = 64;
constexpr qint64 LongestTopic = 65535;

// False, and nothing replaced, when the result could be no topic any more.
bool replaceWithinTopic(QString& text, const QString& variable, const QString& value)
{
    const qint64 growth = qint64{text.count(variable)} * (value.size() - variable.size());
    if (text.size() + growth > LongestTopic)
        return false;
    text.replace(variable, value);
    return true;
}

int linkStateOf(unsigned long port)
{
    unsigned char state = 0;
    TagMemory::Read(1, port, &state);
    return state;
}

} // namespace

QString MQTTManagerServices::GetPLCNAME() const
{
    const QString name = RWJson::readFromJsonFile(DevicePaths::PlcSettingsFile, "plcName");
    return name.isEmpty() ? QString("") : name;
}

QString MQTTManagerServices::GetPLCSN()
{
    return cachedScriptText(m_plcSerial, DevicePaths::SerialNumberCommand);
}

QString MQTTManagerServices::GetPLCMAC()
{
    return cachedScriptText(m_plcMac, DevicePaths::MacAddressCommand);
}

QString MQTTManagerServices::cachedScriptText(QString& cache, const char* commandLine) const
{
    if (!cache.contains(NotKnownYet))
        return cache;
    const auto output = ScriptRunner::runCommandLine(commandLine, ScriptTimeout);
    if (!output)
        return QString("");
    // An empty answer is kept as well: the script is then not asked again.
    cache = QString::fromUtf8(output->constData()).simplified();
    return cache;
}

bool MQTTManagerServices::isMQTTVarIsUsed(const QString& text) const
{
    return text.contains(NameVariable) || text.contains(SerialVariable) || text.contains(MacVariable);
}

QString MQTTManagerServices::SetMQTTTopicVariable(const QString& text)
{
    QString expanded = text;
    for (int pass = 0; isMQTTVarIsUsed(expanded); ++pass) {
        if (pass == MostExpansions || !expandOneVariable(expanded)) {
            PLOG_ERROR << QString(
                              "the variables of '%1' can't be expanded: their values hold variables again, or are too "
                              "long for a topic")
                              .arg(text);
            break;
        }
    }
    return expanded;
}

bool MQTTManagerServices::expandOneVariable(QString& text)
{
    // Where a source has no answer, the next one stands in: name, serial number, MAC text.
    if (text.contains(NameVariable)) {
        QString value = GetPLCNAME();
        if (value.isEmpty())
            value = GetPLCSN();
        return replaceWithinTopic(text, NameVariable, value.isEmpty() ? GetPLCMAC() : value);
    }
    if (text.contains(SerialVariable)) {
        const QString value = GetPLCSN();
        return replaceWithinTopic(text, SerialVariable, value.isEmpty() ? GetPLCMAC() : value);
    }
    return replaceWithinTopic(text, MacVariable, GetPLCMAC());
}

bool MQTTManagerServices::CheckEthPortLinkState() const
{
    const int first = linkStateOf(LinkStatePositions[0]);
    const int second = linkStateOf(LinkStatePositions[1]);
    PLOG_DEBUG << QString("eth1PortLinkState: %1, eth2PortLinkState: %2").arg(first).arg(second);
    const bool isConnected = first == 1 || second == 1;
    PLOG_DEBUG << "isConnected: " << isConnected;
    return isConnected;
}
