#include "servicecode/privatetagmemory.h"

#include "tagmemory.h"

#include <utility>

namespace {

std::vector<PrivateTagMemory::WriteRecord> records;
PrivateTagMemory::Source readSource;

} // namespace

namespace PrivateTagMemory {

const std::vector<WriteRecord>& writes()
{
    return records;
}

void reset()
{
    records.clear();
}

void setSource(Source source)
{
    readSource = std::move(source);
}

} // namespace PrivateTagMemory

int TagMemory::Open()
{
    return 0;
}

int TagMemory::Read(unsigned short size, unsigned long address, unsigned char* data)
{
    return readSource && readSource(address, {data, size}) ? 0 : -1;
}

int TagMemory::Write(unsigned short size, unsigned long address, unsigned char const* data)
{
    records.push_back({address, {data, data + size}});
    return 0;
}

unsigned int TagMemory::RegSync(unsigned long /*kind*/, HdrOperandData_t const* /*entries*/, unsigned char /*count*/,
                                unsigned char /*argument*/)
{
    return 0;
}

int TagMemory::UnRegSync(unsigned long /*regID*/, unsigned char /*argument*/)
{
    return -1;
}

unsigned long TagMemory::OperandAddr2OffsetConversion(unsigned long address)
{
    return address;
}
