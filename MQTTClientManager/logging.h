#pragma once

// What a file needs to log: Qt's texts first, since plog can stream them only then.
#include <QString>

#include <plog/Log.h>

// Starts the log of the process: rolling CSV file first, console second. Call once, before any thread exists.
void setUpLogging(plog::Severity severity);
