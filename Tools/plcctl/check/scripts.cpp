#include "check/checks.h"
#include "check/wording.h"
#include "devicepaths.h"
#include "output.h"
#include "Utils/regularfile.h"

#include <algorithm>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <sys/stat.h>

namespace plcctl::check {

namespace {

constexpr int LargestLook = 1 << 20; // bytes of a script or settings file that are looked at

// The script's own path in a command line that may begin with an interpreter.
std::string scriptOf(const char* commandLine)
{
    const QStringList words = QString(commandLine).split(' ');
    const auto found =
        std::find_if(words.begin(), words.end(), [](const QString& word) { return word.startsWith('/'); });
    return found == words.end() ? "" : found->toStdString();
}

std::optional<QByteArray> contentOf(const std::string& path)
{
    return readRegularFile(QString::fromStdString(path), LargestLook);
}

// Why the file can't be run as a program; empty where it can.
std::string reasonNotToRun(const std::string& path, bool needsPermission)
{
    const auto content = contentOf(path);
    if (!content)
        return "can't be read, or is missing";
    struct stat status = {};
    constexpr mode_t AnyoneRuns = S_IXUSR | S_IXGRP | S_IXOTH;
    if (needsPermission && stat(path.c_str(), &status) == 0 && (status.st_mode & AnyoneRuns) == 0)
        return "is not executable (chmod 755)";
    const QByteArray firstLine = content->left(content->indexOf('\n'));
    if (firstLine.startsWith("#!") && firstLine.endsWith('\r'))
        return "has lines that end as on Windows, and its interpreter isn't found (convert it)";
    return "";
}

class ScriptCheck
{
public:
    ScriptCheck(const Configuration& configuration, Findings& findings)
        : m_configuration(configuration), m_findings(findings)
    {
    }

    void check()
    {
        forEachTopic([this](const Entry& entry, const char* attribute) { checkVariables(entry, attribute); });
        for (const Caller& publication : m_configuration.publications)
            checkFormat(publication);
        for (const Broker& broker : m_configuration.brokers)
            checkRotation(broker);
        checkClock();
    }

private:
    template<typename Look>
    void forEachTopic(Look look)
    {
        for (const Broker& broker : m_configuration.brokers)
            look(broker.entry, "LastWillTopic");
        forEachCaller(m_configuration, [&](const Caller& caller) { look(caller.entry, "Topic"); });
    }

    // True once for each `what`: a script that is missing is told of where it is first needed.
    bool isNew(const std::string& what)
    {
        if (std::find(m_told.begin(), m_told.end(), what) != m_told.end())
            return false;
        m_told.push_back(what);
        return true;
    }

    void checkFormat(const Caller& publication)
    {
        if (publication.format == PayloadFormat::Protobuf)
            checkPublicationScript(publication, "CreateProtobufBuffer.py", "each publishing fails with -11");
        if (publication.format == PayloadFormat::TriggeredOperation) // it is made executable each time
            checkPublicationScript(publication, "HandleMQTTTriggeredOp.sh", "each run fails with -13");
    }

    void checkPublicationScript(const Caller& publication, const char* name, const char* result)
    {
        const std::string path = m_configuration.surroundings.inDirectory(QString("Protobuf/") + name);
        const std::string reason = reasonNotToRun(path, false);
        if (!reason.empty() && isNew(path))
            m_findings.error(publication.entry.site("PayloadFormat"), "script",
                             "the script " + inQuotes(path) + " " + reason + ": " + result + "; put it there");
    }

    void checkVariables(const Entry& entry, const char* attribute)
    {
        if (!m_configuration.surroundings.root)
            return;
        const QString topic = entry.text(attribute);
        const Site site = entry.site(attribute);
        if (topic.contains("{PLC.NAME}"))
            checkName(site);
        if (topic.contains("{PLC.SN}"))
            checkVariableScript(site, scriptOf(DevicePaths::SerialNumberCommand), false,
                                "{PLC.SN} becomes what {PLC.MAC} is");
        if (topic.contains("{PLC.MAC}"))
            checkVariableScript(site, scriptOf(DevicePaths::MacAddressCommand), true,
                                "{PLC.MAC} becomes an empty text");
    }

    void checkVariableScript(Site site, const std::string& devicePath, bool needsPermission, const char* result)
    {
        const std::string path = *m_configuration.surroundings.inTree(devicePath);
        const std::string reason = reasonNotToRun(path, needsPermission);
        if (!reason.empty() && isNew(path))
            m_findings.warning(site, "script",
                               "the script " + inQuotes(path) + " " + reason + ": " + result + "; put it there");
    }

    void checkName(Site site)
    {
        const std::string path = *m_configuration.surroundings.inTree(DevicePaths::PlcSettingsFile);
        if (!isNew(path))
            return;
        const auto content = contentOf(path);
        const QString name =
            content ? QJsonDocument::fromJson(*content).object().value("plcName").toVariant().toString() : QString();
        if (name.isEmpty())
            m_findings.warning(site, "plc-name",
                               "{PLC.NAME} has no value: " + inQuotes(path) +
                                   (content ? " is no JSON object with the key 'plcName'" : " can't be read") +
                                   "; the serial number stands in, or the MAC text");
        else if (name.contains('+') || name.contains('#') || name.contains('/'))
            m_findings.warning(site, "plc-name",
                               "{PLC.NAME} is " + quoted(name) + ", by 'plcName' in " + inQuotes(path) +
                                   ": its '+', '#' or '/' counts as part of the topic; write another name");
        else if (name.contains("{PLC."))
            m_findings.error(site, "plc-name",
                             "{PLC.NAME} is " + quoted(name) + ", by 'plcName' in " + inQuotes(path) +
                                 ": a value that holds a variable is not expanded to an end; write a plain name");
    }

    void checkRotation(const Broker& broker)
    {
        constexpr std::uint32_t RotationLevel = 4;
        const auto path = m_configuration.surroundings.inTree(DevicePaths::ConnectivityCheckScript);
        if (broker.level != RotationLevel || !path)
            return;
        const std::string reason = reasonNotToRun(*path, true);
        if (!reason.empty() && isNew(*path))
            m_findings.warning(broker.entry.site("EncryptionType"), "script",
                               "the script " + inQuotes(*path) + " " + reason +
                                   ": another CA file is never tried; put it there");
    }

    void checkClock()
    {
        const auto path = m_configuration.surroundings.inTree(DevicePaths::ClockCheckScript);
        if (!path || m_configuration.top(GeneralFile) == nullptr)
            return;
        const std::string reason = reasonNotToRun(*path, true);
        if (!reason.empty())
            m_findings.warning({GeneralFile, m_configuration.top(GeneralFile)->place}, "script",
                               "the script " + inQuotes(*path) + " " + reason +
                                   ": the clock counts as set, whatever it shows; put it there");
    }

    const Configuration& m_configuration;
    Findings& m_findings;
    std::vector<std::string> m_told;
};

} // namespace

void checkScripts(const Configuration& configuration, Findings& findings)
{
    ScriptCheck(configuration, findings).check();
}

} // namespace plcctl::check
