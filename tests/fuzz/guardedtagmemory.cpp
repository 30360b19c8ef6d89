#include "guardedtagmemory.h"

#include "fuzzing.h"
#include "tagmemory.h"

#include <algorithm>
#include <cstring>

namespace {

std::vector<GuardedTagMemory::Place> places;
std::vector<GuardedTagMemory::WriteRecord> records;
QByteArray readable;

} // namespace

namespace GuardedTagMemory {

void reset(const std::vector<Place>& writable)
{
    places = writable;
    records.clear();
}

const std::vector<WriteRecord>& writes()
{
    return records;
}

void setContent(const QByteArray& content)
{
    readable = content;
}

} // namespace GuardedTagMemory

int TagMemory::Open()
{
    return 0;
}

int TagMemory::Read(unsigned short size, unsigned long /*address*/, unsigned char* data)
{
    const auto present = std::min<std::size_t>(size, static_cast<std::size_t>(readable.size()));
    std::memcpy(data, readable.constData(), present);
    std::memset(data + present, 0, size - present);
    return 0;
}

int TagMemory::Write(unsigned short size, unsigned long address, unsigned char const* data)
{
    const bool isInside = std::any_of(places.begin(), places.end(), [&](const GuardedTagMemory::Place& place) {
        return address >= place.address && address - place.address + size <= place.size;
    });
    Fuzzing::require(isInside, "the service writes to its own records and tags only");
    records.push_back({address, {reinterpret_cast<const char*>(data), size}});
    return 0;
}

unsigned int TagMemory::RegSync(unsigned long /*kind*/, HdrOperandData_t const* /*entries*/, unsigned char /*count*/,
                                unsigned char /*argument*/)
{
    return 0;
}

int TagMemory::UnRegSync(unsigned long /*regID*/, unsigned char /*argument*/)
{
    return 0;
}

unsigned long TagMemory::OperandAddr2OffsetConversion(unsigned long address)
{
    return address;
}
