#pragma once

// What a file needs to log: Qt's texts first, since plog can stream them only then.
#include <QString>

#include <plog/Log.h>
