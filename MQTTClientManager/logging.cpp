#include "logging.h"

#include "devicepaths.h"
#include "logformatters.h"

#include <plog/Appenders/ConsoleAppender.h>
#include <plog/Appenders/RollingFileAppender.h>
#include <plog/Converters/NativeEOLConverter.h>
#include <plog/Converters/UTF8Converter.h>
#include <plog/Init.h>
#include <QFileInfo>

namespace {

constexpr std::size_t LogFileSize = 0x180000; // bytes
constexpr int LogFiles = 2;

// Everybody can put something there: a pipe would block the first line for ever.
bool isUsableAsLog(const char* path)
{
    const QFileInfo file(path);
    return !file.exists() || file.isFile();
}

} // namespace

void setUpLogging(plog::Severity severity)
{
    static plog::RollingFileAppender<CsvLogFormatter, plog::NativeEOLConverter<plog::UTF8Converter>> file(
        DevicePaths::LogFile, LogFileSize, LogFiles);
    static plog::ConsoleAppender<ConsoleLogFormatter> console;
    CsvLogFormatter::setProcessName("MQTTClientManager");
    if (isUsableAsLog(DevicePaths::LogFile)) {
        plog::init(severity, &file).addAppender(&console);
        return;
    }
    plog::init(severity, &console);
    PLOG_ERROR << "no log file: " << DevicePaths::LogFile << " is no regular file";
}
