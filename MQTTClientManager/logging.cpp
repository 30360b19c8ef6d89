#include "logging.h"

#include "devicepaths.h"
#include "logformatters.h"

#include <plog/Appenders/ConsoleAppender.h>
#include <plog/Appenders/RollingFileAppender.h>
#include <plog/Converters/NativeEOLConverter.h>
#include <plog/Converters/UTF8Converter.h>
#include <plog/Init.h>

namespace {

constexpr std::size_t LogFileSize = 0x180000; // bytes
constexpr int LogFiles = 2;

} // namespace

void setUpLogging(plog::Severity severity)
{
    static plog::RollingFileAppender<CsvLogFormatter, plog::NativeEOLConverter<plog::UTF8Converter>> file(
        DevicePaths::LogFile, LogFileSize, LogFiles);
    static plog::ConsoleAppender<ConsoleLogFormatter> console;
    plog::init(severity, &file).addAppender(&console);
    CsvLogFormatter::setProcessName("MQTTClientManager");
}
