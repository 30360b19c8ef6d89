#pragma once

#include <QString> // ahead of plog, which offers the streaming of Qt's texts only then

#include <plog/Record.h>
#include <plog/Util.h>

// The two layouts of the log.

// One CSV row a record: date, time, severity, thread, process, function, file, line, message.
class CsvLogFormatter
{
public:
    static plog::util::nstring header();
    static plog::util::nstring format(const plog::Record& record);

    // The process name that every row carries. Set once, before the first thread.
    static void setProcessName(const plog::util::nstring& name);
};

// "2026-01-31 07:05:09.042 INFO  [4711] [Class::function@12] message"
class ConsoleLogFormatter
{
public:
    static plog::util::nstring header();
    static plog::util::nstring format(const plog::Record& record);
};
