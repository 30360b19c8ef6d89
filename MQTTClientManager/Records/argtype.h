#pragma once

// Data type of a tag. The numbers stand in the configuration files; they are not in order of width, and stay as they
// are.
enum ArgType : int
{
    AT_NOTYPE = 0,
    AT_BOOL = 1,
    AT_INT8 = 2,
    AT_UINT8 = 3,
    AT_INT16 = 4,
    AT_UINT16 = 5,
    AT_UINT32 = 6,
    AT_INT32 = 7,
    AT_REAL = 8,
    AT_STR32 = 9, // UCS-4, zero-terminated
    AT_STRUCT = 10,
    AT_STR8 = 11, // UTF-8, zero-terminated
    AT_STR16 = 12 // UTF-16, zero-terminated
};

// Length of a datum that has no character length.
inline constexpr int NO_DATA_LEN = -1;
