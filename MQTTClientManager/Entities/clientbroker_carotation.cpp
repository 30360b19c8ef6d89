#include "Entities/clientbroker.h"

#include "devicepaths.h"
#include "logging.h"
#include "Utils/regularfile.h"
#include "Utils/scriptrunner.h"

#include <cstdio>
#include <QFile>
#include <QRunnable>
#include <QTemporaryFile>
#include <QThreadPool>
#include <unistd.h>

namespace {

constexpr std::chrono::milliseconds CA_CHECK_TIMEOUT_MS(45'000);
constexpr int LargestCaFile = 16 << 20; // bytes

// Hands `place` a complete copy of `source` that lies beside `destination`, to be renamed: whoever reads `destination`
// meanwhile sees the old file or the new one, and the old one goes only when the new one is there.
template<typename Place>
bool placeCopy(const QString& source, const QString& destination, Place place)
{
    const auto content = readRegularFile(source, LargestCaFile + 1);
    if (!content || content->size() > LargestCaFile)
        return false;
    QTemporaryFile copy(destination + ".XXXXXX"); // of its own: brokers may share a CA file
    if (!copy.open() || copy.write(*content) != content->size() || !copy.flush() || fsync(copy.handle()) != 0)
        return false;
    copy.setPermissions(QFile::permissions(source));
    const bool isPlaced = place(copy.fileName(), destination);
    copy.setAutoRemove(!isPlaced);
    return isPlaced;
}

bool keepAs(const QString& copy, const QString& path)
{
    return QFile::rename(copy, path); // never over a file that is there
}

bool putInPlaceOf(const QString& copy, const QString& path)
{
    return std::rename(QFile::encodeName(copy).constData(), QFile::encodeName(path).constData()) == 0;
}

} // namespace

// Looks why an attempt at level 4 failed, and puts the next candidate in place of the CA file when the broker's issuer
// is unknown. The next attempt, whoever makes it, takes the new file. On a thread of the global pool, which deletes it.
class ClientBroker::ChangeCaFileTask : public QRunnable
{
public:
    explicit ChangeCaFileTask(ClientBroker* broker)
        : m_clientBroker(broker), m_generation(broker->m_Generation.lock()),
          m_caFile(broker->SetCAFileName), m_scriptArguments{broker->IPorURL,
                                                             QString::number(broker->Port),
                                                             broker->ClientCertificateFileName,
                                                             broker->ClientKeyFileName,
                                                             broker->SetCAFileName,
                                                             DevicePaths::ConfigurationDirectory}
    {
    }
    void run() override { changeCaFile(); }

private:
    void changeCaFile();
    void rotate();
    void keepOriginal() const;

    ClientBroker* m_clientBroker; // not owned
    // The task may wait for its thread, and its script take 45 s: a start in between must not take the broker away, and
    // a new configuration of the broker may write to its texts.
    std::shared_ptr<const void> m_generation;
    QString m_caFile;
    QStringList m_scriptArguments;
};

void ClientBroker::startCaFileChange()
{
    if (Encryption != ENC_SELF_SIGNED_CERTIFICATE || ProcessEnding::hasBegun() || m_caFileChangeRunning.exchange(true))
        return;
    QThreadPool::globalInstance()->start(new ChangeCaFileTask(this), 0);
}

void ClientBroker::ChangeCaFileTask::changeCaFile()
{
    PLOG_DEBUG << "START";
    const auto output = ScriptRunner::run(DevicePaths::ConnectivityCheckScript, m_scriptArguments, CA_CHECK_TIMEOUT_MS,
                                          ProcessEnding::hasBegun);
    // Clearing the flag is the last that is done with the broker on every path: it may be waiting to go.
    if (!output) {
        m_clientBroker->m_caFileChangeRunning = false;
        PLOG_DEBUG << "No connection to internet leave without taking any action";
        return;
    }
    if (QString::fromUtf8(*output).simplified().toUInt() == 0) {
        m_clientBroker->m_caFileChangeRunning = false;
        PLOG_DEBUG << "Couldn't find 'Verify return code: 20";
        return;
    }
    rotate();
    const int nextIndex = m_clientBroker->m_caFileNextIndex;
    m_clientBroker->m_caFileChangeRunning = false;
    PLOG_DEBUG << QString(" m_caFileNextIndex:%1 END").arg(nextIndex);
}

void ClientBroker::ChangeCaFileTask::rotate()
{
    const QStringList& candidates = m_clientBroker->m_caFilesList;
    if (candidates.isEmpty()) {
        PLOG_WARNING << QString("broker '%1': its issuer is unknown, and there is no candidate CA file in %2")
                            .arg(m_clientBroker->Name, DevicePaths::CandidateCaDirectory);
        return;
    }
    const int index = m_clientBroker->m_caFileNextIndex;
    const QString source = DevicePaths::CandidateCaDirectory + candidates.at(index);
    PLOG_DEBUG << QString("src:%1 dst:%2").arg(source, m_caFile);
    if (QFile::exists(m_caFile))
        keepOriginal();
    // Intended: the next candidate's turn comes also when this one can't be put in place.
    if (placeCopy(source, m_caFile, putInPlaceOf)) {
        PLOG_INFO << QString("broker '%1': its issuer is unknown, %2 is now a copy of %3")
                         .arg(m_clientBroker->Name, m_caFile, source);
    } else {
        PLOG_WARNING
            << QString("broker '%1': %2 can't be put in place of %3").arg(m_clientBroker->Name, source, m_caFile);
    }
    m_clientBroker->m_caFileNextIndex = (index + 1) % candidates.size();
    sync();
}

void ClientBroker::ChangeCaFileTask::keepOriginal() const
{
    const QString keepPath = DevicePaths::CandidateCaDirectory + m_caFile.mid(m_caFile.lastIndexOf('/') + 1);
    PLOG_DEBUG << "originalCaFile: " << keepPath;
    // Intended: the rotation goes on where the file can't be kept.
    if (!QFile::exists(keepPath) && !placeCopy(m_caFile, keepPath, keepAs)) {
        PLOG_WARNING << QString("broker '%1': %2 can't be kept as %3").arg(m_clientBroker->Name, m_caFile, keepPath);
    }
}
