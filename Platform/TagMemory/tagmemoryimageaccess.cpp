#include "tagmemoryimageaccess.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace TagMemoryImage {
namespace {

constexpr auto CreatorTimeout = std::chrono::seconds(1);
constexpr auto CreatorPollStep = std::chrono::milliseconds(2);

// A file descriptor that is closed with its scope; errno survives.
class Descriptor
{
public:
    explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    ~Descriptor()
    {
        const int error = errno;
        if (m_descriptor >= 0)
            ::close(m_descriptor);
        errno = error;
    }

    [[nodiscard]] int get() const { return m_descriptor; }

private:
    int m_descriptor;
};

// getpid() is a system call, too dear for every journal entry.
std::atomic<std::int32_t> processId{0};

void rememberProcessId()
{
    processId.store(::getpid(), std::memory_order_relaxed);
}

int openObject(Access access)
{
    const int mode = access == Access::ReadOnly ? O_RDONLY : O_RDWR;
    for (;;) {
        // Not O_CREAT at once: kernels refuse that flag on another user's object in a shared directory.
        const int existing = ::shm_open(SharedMemoryName, mode, 0);
        if (existing >= 0 || errno != ENOENT || access != Access::CreateReadWrite)
            return existing;
        const int created = ::shm_open(SharedMemoryName, O_RDWR | O_CREAT | O_EXCL, 0666);
        if (created >= 0 || errno != EEXIST)
            return created;
    }
}

// The object's size goes from 0 to whole in one step, whoever takes it. Its pages are taken here, too: in a full
// file system this is an error code, whereas a later access would be a SIGBUS.
bool fillObject(int descriptor)
{
    int error = EINTR;
    while (error == EINTR)
        error = ::posix_fallocate(descriptor, 0, sizeof(Image));
    errno = error;
    return error == 0;
}

bool hasWholeSize(int descriptor, Access access)
{
    const auto deadline = std::chrono::steady_clock::now() + CreatorTimeout;
    for (;;) {
        struct stat status
        {
        };
        if (::fstat(descriptor, &status) != 0)
            return false;
        if (status.st_size == static_cast<off_t>(sizeof(Image)))
            return true;
        if (status.st_size != 0) {
            errno = EPROTO;
            return false;
        }
        if (access == Access::CreateReadWrite)
            return fillObject(descriptor);
        if (std::chrono::steady_clock::now() >= deadline) {
            errno = ETIMEDOUT;
            return false;
        }
        std::this_thread::sleep_for(CreatorPollStep);
    }
}

// All that a new object needs beside zeros is its version and magic. Several creators at once store the same.
bool hasLayout(Image& image, Access access)
{
    const auto deadline = std::chrono::steady_clock::now() + CreatorTimeout;
    while (image.header.magic.load(std::memory_order_acquire) == 0) {
        if (access == Access::CreateReadWrite) {
            std::atomic_ref(image.header.version).store(Version, std::memory_order_relaxed);
            image.header.magic.store(Magic, std::memory_order_release);
        } else if (std::chrono::steady_clock::now() >= deadline) {
            errno = ETIMEDOUT;
            return false;
        } else {
            std::this_thread::sleep_for(CreatorPollStep);
        }
    }
    const std::uint32_t version = std::atomic_ref(image.header.version).load(std::memory_order_relaxed);
    if (image.header.magic.load(std::memory_order_relaxed) == Magic && version == Version)
        return true;
    errno = EPROTO;
    return false;
}

// Calls copy(unit, offset) for the largest unit that the tags' alignment and the bytes left allow, until none are left.
template<typename Copy>
inline void inAlignedUnits(const std::uint8_t* tags, std::size_t size, Copy copy)
{
    const auto address = reinterpret_cast<std::uintptr_t>(tags);
    std::size_t offset = 0;
    const auto copyOne = [&](auto unit) {
        copy(unit, offset);
        offset += sizeof(unit);
    };
    const auto left = [&](std::size_t bytes) { return size - offset >= bytes; };
    const auto startsOdd = [&](std::size_t bytes) { return ((address + offset) & bytes) != 0 && left(bytes); };
    if ((address & 7) != 0) {
        if (startsOdd(1))
            copyOne(std::uint8_t{});
        if (startsOdd(2))
            copyOne(std::uint16_t{});
        if (startsOdd(4))
            copyOne(std::uint32_t{});
    }
    while (left(8))
        copyOne(std::uint64_t{});
    if (left(4))
        copyOne(std::uint32_t{});
    if (left(2))
        copyOne(std::uint16_t{});
    if (left(1))
        copyOne(std::uint8_t{});
}

void store(std::uint8_t* tags, const std::uint8_t* source, std::size_t size)
{
    inAlignedUnits(tags, size, [=](auto unit, std::size_t offset) {
        std::memcpy(&unit, source + offset, sizeof(unit));
        std::atomic_ref(*reinterpret_cast<decltype(unit)*>(tags + offset)).store(unit, std::memory_order_release);
    });
}

} // namespace

Image* attach(Access access)
{
    const Descriptor descriptor(openObject(access));
    if (descriptor.get() < 0 || !hasWholeSize(descriptor.get(), access))
        return nullptr;

    const int protection = access == Access::ReadOnly ? PROT_READ : PROT_READ | PROT_WRITE;
    void* const memory = ::mmap(nullptr, sizeof(Image), protection, MAP_SHARED, descriptor.get(), 0);
    if (memory == MAP_FAILED)
        return nullptr;
    auto* const image = static_cast<Image*>(memory);
    if (!hasLayout(*image, access)) {
        const int error = errno;
        ::munmap(memory, sizeof(Image));
        errno = error;
        return nullptr;
    }

    static const bool followsForks = ::pthread_atfork(nullptr, nullptr, rememberProcessId) == 0;
    static_cast<void>(followsForks); // a failure costs a wrong process number in a child's entries, no more
    rememberProcessId();
    return image;
}

void load(std::uint8_t* destination, const std::uint8_t* tags, std::size_t size)
{
    inAlignedUnits(tags, size, [=](auto unit, std::size_t offset) {
        // atomic_ref takes no const object; nothing is written through it.
        auto& place = *reinterpret_cast<decltype(unit)*>(const_cast<std::uint8_t*>(tags) + offset);
        unit = std::atomic_ref(place).load(std::memory_order_acquire);
        std::memcpy(destination + offset, &unit, sizeof(unit));
    });
}

bool write(Image& image, std::uint64_t position, const std::uint8_t* data, std::uint32_t size)
{
    std::uint8_t* const tags = locate(image, size, position);
    if (tags == nullptr)
        return false;

    timespec now{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);

    std::array<std::uint64_t, JournalBytes / sizeof(std::uint64_t)> bytes{};
    if (size != 0) // memcpy takes no null pointer, not even for nothing
        std::memcpy(bytes.data(), data, std::min<std::size_t>(size, JournalBytes));

    // A writer that is held up between here and its last store while all others fill the journal once around can spoil
    // the newer entry in its slot. Preventing that would cost every write a second locked operation.
    const std::uint64_t number = image.header.writes.fetch_add(1, std::memory_order_relaxed);
    JournalEntry& entry = image.journal[number % JournalCapacity];
    entry.sequence.store(0, std::memory_order_relaxed);
    // Release: whoever sees one of the new fields also sees that the entry is no longer whole.
    const auto set = [](auto& field, auto value) { std::atomic_ref(field).store(value, std::memory_order_release); };
    set(entry.timeNanoseconds, now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec);
    set(entry.position, position);
    set(entry.size, size);
    set(entry.processId, processId.load(std::memory_order_relaxed));
    auto* const words = reinterpret_cast<std::uint64_t*>(entry.bytes);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        set(words[i], bytes[i]);
    // Between the entry's number and its end, so that who waits for a tag's value finds the write that brought it.
    store(tags, data, size);
    entry.sequence.store(number + 1, std::memory_order_release);
    return true;
}

std::optional<Write> readWrite(const Image& image, std::uint64_t number)
{
    const JournalEntry& entry = image.journal[number % JournalCapacity];
    if (entry.sequence.load(std::memory_order_acquire) != number + 1)
        return std::nullopt;

    Write write{};
    write.number = number;
    const auto get = [](const auto& field, auto& value) {
        load(reinterpret_cast<std::uint8_t*>(&value), reinterpret_cast<const std::uint8_t*>(&field), sizeof(value));
    };
    get(entry.timeNanoseconds, write.timeNanoseconds);
    get(entry.position, write.position);
    get(entry.size, write.size);
    get(entry.processId, write.processId);
    load(write.bytes.data(), entry.bytes, JournalBytes);

    if (entry.sequence.load(std::memory_order_relaxed) != number + 1)
        return std::nullopt;
    return write;
}

} // namespace TagMemoryImage
