#include "servicecode/configuredentities.h"

#include "failure.h"
#include "output.h"
#include "servicecode/collectedlog.h"

#include "devicepaths.h"
#include "Services/mqttXmlParser.h"
#include "Utils/regularfile.h"

#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace plcctl {

namespace {

constexpr int LargestConfiguration = 64 * 1024 * 1024; // bytes

// A copy of a file in memory only, under a name that the parser can open for reading and writing.
class MemoryCopy
{
public:
    explicit MemoryCopy(const QByteArray& content) : m_descriptor(memfd_create("configuration", MFD_CLOEXEC))
    {
        m_isWhole = m_descriptor >= 0 && write(m_descriptor, content.constData(), content.size()) == content.size();
    }
    ~MemoryCopy() { close(m_descriptor); }
    MemoryCopy(const MemoryCopy&) = delete;
    MemoryCopy& operator=(const MemoryCopy&) = delete;

    [[nodiscard]] bool isWhole() const { return m_isWhole; }
    [[nodiscard]] QString path() const { return QString("/proc/self/fd/%1").arg(m_descriptor); }

private:
    int m_descriptor;
    bool m_isWhole;
};

template<typename Entity>
QList<Entity> readEntities(const std::string& directory, const char* file,
                           bool (MQTTXmlParser::*parse)(QString, QList<Entity>&, QString&))
{
    const std::string path = pathIn(directory, file);
    const auto content = readRegularFile(QString::fromStdString(path), LargestConfiguration);
    if (!content) {
        throw Failure(ExitCode::NothingToRead, printable(path) + " can't be read: " + std::strerror(errno) +
                                                   "; name the configuration's directory with --config DIR");
    }
    const MemoryCopy copy(*content);
    QString version;
    QList<Entity> entities;
    if (copy.isWhole() && (MQTTXmlParser::instance()->*parse)(copy.path(), entities, version))
        return entities;
    std::string reasons;
    for (const std::string& line : takeLogLines())
        reasons += ": " + printable(line);
    throw Failure(ExitCode::NothingToRead, printable(path) + " is refused by the service" + reasons);
}

void moveTo(const std::string& directory, QString& path)
{
    const QString device = DevicePaths::ConfigurationDirectory;
    if (path.startsWith(device))
        path = QString::fromStdString(pathIn(directory, "")) + path.mid(device.size());
}

} // namespace

std::string pathIn(const std::string& directory, const char* file)
{
    return directory + (directory.ends_with('/') ? "" : "/") + file;
}

QList<ClientBroker> readBrokers(const std::string& directory)
{
    QList<ClientBroker> brokers =
        readEntities<ClientBroker>(directory, DevicePaths::BrokersFile, &MQTTXmlParser::ParseXMLFileBrokers);
    for (ClientBroker& broker : brokers) {
        moveTo(directory, broker.SetCAFileName);
        moveTo(directory, broker.ClientCertificateFileName);
        moveTo(directory, broker.ClientKeyFileName);
    }
    return brokers;
}

QList<Publisher> readPublications(const std::string& directory)
{
    return readEntities<Publisher>(directory, DevicePaths::PublicationsFile, &MQTTXmlParser::ParseXMLFilePublications);
}

QList<Subscriber> readSubscriptions(const std::string& directory)
{
    return readEntities<Subscriber>(directory, DevicePaths::SubscriptionsFile,
                                    &MQTTXmlParser::ParseXMLFileSubscriptions);
}

} // namespace plcctl
