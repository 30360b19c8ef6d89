#include "Entities/publisher.h"

#include "devicepaths.h"
#include "logging.h"
#include "processending.h"
#include "tagmemory.h"
#include "Utils/regularfile.h"
#include "Utils/scriptrunner.h"
#include "Utils/sharedscalar.h"

#include <algorithm>
#include <limits>
#include <thread>

namespace {

constexpr std::chrono::milliseconds ScriptTimeout(30'000);
constexpr int LargestTag = std::numeric_limits<unsigned short>::max(); // bytes; tag memory's sizes have 16 bits

// Each script has one result file for all its publications, and the main and the request thread may publish at the same
// moment: one of them would take the other's result. They go in the order in which they came, since a publication whose
// period is shorter than its script would take every turn.
struct Script
{
    Ordered<unsigned> tickets;
    Ordered<unsigned> served;
};

Script protobuf;
Script operation;

class ScriptTurn
{
public:
    explicit ScriptTurn(Script& script) : m_script(script)
    {
        const unsigned ticket = m_script.tickets.increment();
        while (m_script.served + 1 != ticket)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ~ScriptTurn() { m_script.served.increment(); }
    ScriptTurn(const ScriptTurn&) = delete;
    ScriptTurn& operator=(const ScriptTurn&) = delete;

private:
    Script& m_script;
};

// A script that hangs doesn't hold up the end of the process.
std::optional<QByteArray> runWhileWanted(const QString& commandLine)
{
    return ScriptRunner::runCommandLine(commandLine, ScriptTimeout, ProcessEnding::hasBegun);
}

// Ends its turn ahead of the publication, which may have to wait for a broker.
std::optional<QByteArray> protobufMessage(const QString& description)
{
    const ScriptTurn turn(protobuf);
    if (!runWhileWanted(QString(DevicePaths::ProtobufCommand).arg(description)))
        return std::nullopt;
    // Intended: a message that the script has left in place from an earlier run is published again.
    return readRegularFile(DevicePaths::ProtobufResultFile, SIZEOF_PUBLISH_BUFFER + 1);
}

} // namespace

PublicationStatusCodes Publisher::publishProtobuf()
{
    const QString description = DevicePaths::PublicationScriptDirectory + tagText();
    PLOG_DEBUG << QString("Protobuf file is '%1'").arg(description);
    const auto message = protobufMessage(description);
    if (!message)
        return PSC_ERROR_NOT_PUBLISHED;
    if (message->size() > SIZEOF_PUBLISH_BUFFER)
        return PSC_ERROR_DATA_BIG_THAN_BUFF;
    std::copy(message->begin(), message->end(), m_PublishBuffer.begin());
    return publishBuffer(message->size());
}

PublicationStatusCodes Publisher::runTriggeredOperation()
{
    const ScriptTurn turn(operation);
    const PublicationStatusCodes result = triggerOperation() ? PSC_OK : PSC_ERROR_SCRIPT_FAILED;
    PLOG_DEBUG << QString("END, rtnValue=%1").arg(int{result});
    return result;
}

bool Publisher::triggerOperation()
{
    PLOG_DEBUG << "Set permissions of HandleMQTTTriggeredOp.sh";
    // Whatever comes of it. By hand: the C library's system() has the whole process ignore SIGINT and SIGQUIT
    // meanwhile, and a termination signal of that moment would be lost.
    (void)ScriptRunner::run("/bin/sh", {"-c", DevicePaths::TriggeredPermissionCommand}, ScriptTimeout,
                            ProcessEnding::hasBegun);
    const QString command =
        QString(DevicePaths::TriggeredCommand).arg(DevicePaths::PublicationScriptDirectory, tagText());
    PLOG_DEBUG << QString("Runinig '%1'").arg(command);
    const auto output = runWhileWanted(command);
    if (!output)
        return false;

    const QString answer = QString::fromUtf8(*output);
    PLOG_DEBUG << QString("Script result is '%1'").arg(answer);
    // Intended: the digits may stand anywhere, and 0 is looked for first, so "10" counts as 0.
    if (answer.contains('0'))
        return writeOperationResult();
    if (answer.contains('1'))
        return true;
    PLOG_DEBUG << "Script HandleMQTTTriggeredOp.sh faild";
    return false;
}

bool Publisher::writeOperationResult()
{
    auto content = readRegularFile(DevicePaths::TriggeredResultFile, LargestTag + 1);
    if (!content) {
        PLOG_DEBUG << "No URL file fail";
        return false;
    }
    if (content->size() > LargestTag) {
        PLOG_WARNING << QString("publication '%1': the result of its operation is cut to %2 bytes")
                            .arg(m_Name, QString::number(LargestTag));
        content->truncate(LargestTag);
    }
    PLOG_DEBUG << QString("Write '%1' to '%2' size '%3'")
                      .arg(QString::fromUtf8(*content), QString::number(m_DataAddress),
                           QString::number(content->size()));
    // Intended: the size is the file's, not the tag's, nothing ends the text, and a write that fails counts as success.
    TagMemory::Write(static_cast<unsigned short>(content->size()), m_DataAddress,
                     reinterpret_cast<const unsigned char*>(content->constData()));
    return true;
}

QString Publisher::tagText() const
{
    // One byte more than can be read, so that the text of a full tag ends as well.
    QByteArray tag(LargestTag + 1, '\0');
    TagMemory::Read(static_cast<unsigned short>(std::max(m_DataSize, 0)), m_DataAddress,
                    reinterpret_cast<unsigned char*>(tag.data()));
    return QString::fromUtf8(tag.constData());
}
