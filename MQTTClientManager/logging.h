#pragma once

#include "Utils/log.h"

// Starts the log of the process: rolling CSV file first, console second. Call once, before any thread exists.
void setUpLogging(plog::Severity severity);
