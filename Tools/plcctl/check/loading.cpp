#include "check/loading.h"

#include "devicepaths.h"
#include "failure.h"
#include "output.h"
#include "Utils/regularfile.h"
#include "Utils/xmldocumentreader.h"

#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace plcctl::check {

namespace {

namespace fs = std::filesystem;

constexpr const char* FileNames[] = {DevicePaths::GeneralFile, DevicePaths::BrokersFile, DevicePaths::SubscriptionsFile,
                                     DevicePaths::PublicationsFile};

std::string withoutSlashes(std::string path)
{
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    return path;
}

// A tree without the system's part, such as a project's, tells nothing of a device's scripts and settings.
std::optional<std::string> deviceRoot(const std::string& root)
{
    std::error_code error;
    return fs::is_directory(root + "/VEL/System", error) ? std::optional(root) : std::nullopt;
}

// The tree around a configuration directory that stands in its place of one.
std::optional<std::string> rootAround(const std::string& directory)
{
    std::error_code error;
    const std::string path = withoutSlashes(fs::weakly_canonical(directory, error).string());
    const std::string place = withoutSlashes(DevicePaths::ConfigurationDirectory);
    if (error || !path.ends_with(place))
        return std::nullopt;
    return deviceRoot(path.substr(0, path.size() - place.size()));
}

Surroundings surroundingsOf(const std::string& given)
{
    const std::string directory = withoutSlashes(given);
    const std::string root = directory == "/" ? "" : directory;
    const std::string inTree = root + withoutSlashes(DevicePaths::ConfigurationDirectory);
    std::error_code error;
    if (fs::is_directory(inTree, error))
        return {inTree, deviceRoot(root)};
    if (!fs::is_directory(directory, error))
        throw Failure(ExitCode::NothingToRead, "there is no directory " + inQuotes(given));
    return {directory, rootAround(directory)};
}

void checkPermissions(const std::string& path, int file, Findings& findings)
{
    struct stat status = {};
    constexpr mode_t AnyoneWrites = S_IWUSR | S_IWGRP | S_IWOTH;
    if (access(path.c_str(), W_OK) != 0)
        findings.error({file, {}}, "not-writable",
                       "there is no permission to write this file: the service refuses it then, though it only reads, "
                       "and ends at its start; allow it to the service's user");
    else if (stat(path.c_str(), &status) == 0 && (status.st_mode & AnyoneWrites) == 0)
        findings.warning({file, {}}, "not-writable",
                         "nobody but root may write this file: a service of another user refuses it, and ends at its "
                         "start; allow it with 'chmod u+w'");
}

// False when there is no such file at all.
bool load(SourceFile& source, int file, Findings& findings)
{
    const Site start{file, {}};
    struct stat status = {};
    if (stat(source.path.c_str(), &status) != 0) {
        findings.error(
            start, "missing-file",
            "the file is missing, or can't be looked at: the service ends at its start without it; write it");
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        findings.error(start, "no-file", "this is no regular file: the service can't use it and ends at its start");
        return true;
    }
    const auto content =
        readRegularFile(QString::fromStdString(source.path), static_cast<int>(XmlDocumentReader::LargestFile) + 1);
    if (!content) {
        findings.error(start, "no-file", "the file can't be read: the service ends at its start; allow it to be read");
        return true;
    }
    checkPermissions(source.path, file, findings);
    source.document = parseDocument(*content);
    if (const auto& problem = source.document.problem)
        findings.error({file, problem->place}, "invalid-content",
                       "invalid content due to " + printable(problem->message.toStdString()) +
                           ": the service can't use the file and ends at its start");
    return true;
}

} // namespace

Configuration loadConfiguration(const std::string& directory, Findings& findings)
{
    Configuration configuration{surroundingsOf(directory), {}};
    bool isAnyThere = false;
    for (int file = 0; file < ConfigurationFiles; ++file) {
        configuration.files.at(file).path = configuration.surroundings.inDirectory(FileNames[file]);
        isAnyThere |= load(configuration.files.at(file), file, findings);
    }
    if (!isAnyThere)
        throw Failure(ExitCode::NothingToRead,
                      "there is no configuration file in " + inQuotes(configuration.surroundings.directory) +
                          "; name the directory that holds " + DevicePaths::BrokersFile + ", or a device's file tree");
    collectEntries(configuration);
    return configuration;
}

} // namespace plcctl::check
