#include "tagmemory.h"

#include "tagmemoryimageaccess.h"

#include <algorithm>

#include <sys/mman.h>

// The stand-in for the controller's library: tags are plain shared memory, every write leaves a journal entry, and
// registrations are only recorded. Nothing here takes a lock.

using namespace TagMemoryImage;

namespace {

std::atomic<Image*> attachedImage{nullptr};

Image* attachOnce()
{
    Image* const mine = attach(Access::CreateReadWrite);
    if (mine == nullptr)
        return nullptr;
    Image* first = nullptr;
    if (attachedImage.compare_exchange_strong(first, mine, std::memory_order_acq_rel))
        return mine;
    ::munmap(mine, sizeof(Image)); // another thread was quicker
    return first;
}

// Null while shared memory can't be had; every call tries again then.
Image* image()
{
    Image* const attached = attachedImage.load(std::memory_order_acquire);
    return attached != nullptr ? attached : attachOnce();
}

} // namespace

int TagMemory::Open()
{
    return image() != nullptr ? 0 : -1;
}

int TagMemory::Read(unsigned short size, unsigned long address, unsigned char* data)
{
    Image* const memory = image();
    const std::uint8_t* const tags = memory != nullptr ? locate(*memory, size, address) : nullptr;
    if (tags == nullptr)
        return -1;
    load(data, tags, size);
    return 0;
}

int TagMemory::Write(unsigned short size, unsigned long address, unsigned char const* data)
{
    Image* const memory = image();
    return memory != nullptr && write(*memory, address, data, size) ? 0 : -1;
}

unsigned int TagMemory::RegSync(unsigned long, HdrOperandData_t const* entries, unsigned char count, unsigned char)
{
    Image* const memory = image();
    if (memory == nullptr || count > MaxEntriesPerRegistration)
        return 0;
    for (Registration& registration : memory->registrations) {
        std::uint32_t free = 0;
        if (!registration.id.compare_exchange_strong(free, RegistrationBeingFilled, std::memory_order_acq_rel))
            continue;
        registration.count = count;
        std::copy_n(entries, count, registration.entries);
        const std::uint32_t id = memory->header.registrations.fetch_add(1, std::memory_order_relaxed) + 1;
        registration.id.store(id, std::memory_order_release);
        return id;
    }
    return 0;
}

int TagMemory::UnRegSync(unsigned long regID, unsigned char)
{
    Image* const memory = image();
    if (memory == nullptr || regID == 0 || regID >= RegistrationBeingFilled)
        return -1;
    for (Registration& registration : memory->registrations) {
        auto id = static_cast<std::uint32_t>(regID);
        if (registration.id.compare_exchange_strong(id, 0, std::memory_order_acq_rel))
            return 0;
    }
    return -1;
}

unsigned long TagMemory::OperandAddr2OffsetConversion(unsigned long address)
{
    return OperandWindowBase + address;
}
