// A process that uses tag memory and the request queue as the service does, for the tests of what plcctl shows of it.
// usage: tagmemoryuser write COUNT                  writes one byte COUNT times
//        tagmemoryuser register                     leaves two registrations behind
//        tagmemoryuser unregister ID
//        tagmemoryuser answer CODE...               prints one request and answers it with these values; "next" takes
//                                                   one more, and @FILE writes that file to where a record is wanted
//        tagmemoryuser handover RECORD DATA COUNT   hands COUNT messages over to the control application

#include "tagmemory.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mqueue.h>
#include <span>
#include <string_view>
#include <thread>

namespace {

constexpr int PatienceSeconds = 20;
constexpr auto HandOverPause = std::chrono::milliseconds(150);
constexpr auto Glance = std::chrono::milliseconds(1);

bool writeTimes(unsigned long count)
{
    constexpr unsigned char Value = 1;
    constexpr unsigned long Area = 1000;
    for (unsigned long number = 0; number < count; ++number) {
        if (TagMemory::Write(1, number % Area, &Value) != 0)
            return false;
    }
    return true;
}

bool registerTags()
{
    constexpr std::array Tags{HdrOperandData_t{4, 0, 3000}, HdrOperandData_t{1, 0, 44}, HdrOperandData_t{2, 0, 5000}};
    return TagMemory::RegSync(300, Tags.data(), 3, 10) != 0 && TagMemory::RegSync(300, &Tags[1], 1, 10) != 0;
}

bool writeByte(unsigned long position, std::uint8_t value)
{
    return TagMemory::Write(1, position, &value) == 0;
}

std::uint8_t readByte(unsigned long position)
{
    std::uint8_t value = 0;
    TagMemory::Read(1, position, &value);
    return value;
}

// The controller's side of the queue's other end.
class Answerer
{
public:
    // False if there is no request, or something can't be written.
    bool answer(std::span<char*> steps)
    {
        bool good = take();
        for (const std::string_view step : steps) {
            if (!good)
                return false;
            if (step == "next")
                good = take();
            else if (step.starts_with('@'))
                good = writeRecord(step.substr(1).data());
            else
                good = writeByte(m_statusPosition, static_cast<std::uint8_t>(std::strtol(step.data(), nullptr, 10)));
        }
        return good;
    }

private:
    static constexpr std::size_t ReqIdAt = 2;
    static constexpr std::size_t StateRequestStatusAt = 4;
    static constexpr std::size_t StatusAt = 8;
    static constexpr std::size_t RecordOperandAt = 12;
    static constexpr std::uint16_t Pause = 13;
    static constexpr std::uint16_t Start = 14;
    static constexpr std::uint16_t SecondPacket = 16;

    bool take()
    {
        m_message.fill(0);
        const timespec deadline{std::time(nullptr) + PatienceSeconds, 0};
        const ssize_t size = mq_timedreceive(m_queue, m_message.data(), m_message.size(), nullptr, &deadline);
        if (size < 0)
            return false;
        for (ssize_t at = 0; at < size; ++at) {
            const auto byte = static_cast<std::uint8_t>(m_message.at(static_cast<std::size_t>(at)));
            std::printf("%02x", static_cast<unsigned>(byte));
        }
        std::printf("\n");

        const auto reqId = numberAt<std::uint16_t>(ReqIdAt);
        const bool isStateRequest = reqId == Pause || reqId == Start;
        // The second half of a record is answered where the first one was.
        if (reqId != SecondPacket)
            m_statusPosition = positionAt(isStateRequest ? StateRequestStatusAt : StatusAt);
        return true;
    }

    bool writeRecord(const char* file) const
    {
        std::array<unsigned char, 4096> bytes{};
        std::FILE* const input = std::fopen(file, "rb");
        if (!input)
            return false;
        const std::size_t size = std::fread(bytes.data(), 1, bytes.size(), input);
        std::fclose(input);
        return TagMemory::Write(static_cast<unsigned short>(size), positionAt(RecordOperandAt), bytes.data()) == 0;
    }

    template<typename Number>
    [[nodiscard]] Number numberAt(std::size_t at) const
    {
        Number number = 0;
        std::memcpy(&number, &m_message.at(at), sizeof number);
        return number;
    }

    [[nodiscard]] unsigned long positionAt(std::size_t at) const
    {
        return TagMemory::OperandAddr2OffsetConversion(numberAt<std::uint32_t>(at));
    }

    mqd_t m_queue = mq_open("/MQTTQueue", O_RDONLY);
    std::array<char, 1500> m_message{};
    unsigned long m_statusPosition = 0;
};

// The service's side of a buffered subscription whose tag is one UINT32.
class HandOver
{
public:
    HandOver(unsigned long record, unsigned long data) : m_record(record), m_data(data) {}

    // False if the application doesn't ask, or clears the received bit at another time than while a message waits.
    bool run(std::uint32_t count)
    {
        bool good = writeWholeRecord(1, Waiting);
        for (std::uint32_t number = 1; good && number <= count; ++number) {
            const bool isLast = number == count;
            good = waitForClearBit() && handOverOne(number, isLast);
            if (good && !isLast)
                good = writeByte(m_record + StateAt, Waiting) && writeByte(m_record + BitAt, 1);
        }
        return good;
    }

private:
    static constexpr unsigned long BitAt = 2;
    static constexpr unsigned long StateAt = 520;
    static constexpr std::uint8_t Done = 0;
    static constexpr std::uint8_t HandingOver = 1;
    static constexpr std::uint8_t Waiting = 2;

    bool handOverOne(std::uint32_t number, bool isLast)
    {
        if (!writeByte(m_record + StateAt, HandingOver) || !writeWholeRecord(0, HandingOver))
            return false;
        // The next message arrives in the middle: the record then looks as if one waited.
        if (!isLast && !writeWholeRecord(1, Waiting))
            return false;
        const auto* const bytes = reinterpret_cast<const unsigned char*>(&number);
        return TagMemory::Write(sizeof number, m_data, bytes) == 0 && keepsItsHandsOff(!isLast) &&
               writeByte(m_record + StateAt, Done) && keepsItsHandsOff(!isLast);
    }

    bool writeWholeRecord(std::uint8_t bit, std::uint8_t state) const
    {
        std::array<unsigned char, 524> record{1};
        record[BitAt] = bit;
        record[StateAt] = state;
        return TagMemory::Write(static_cast<unsigned short>(record.size()), m_record, record.data()) == 0;
    }

    bool waitForClearBit() const
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(PatienceSeconds);
        while (readByte(m_record + BitAt) != 0) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::sleep_for(Glance);
        }
        return true;
    }

    // Whether the bit stays as it is for a while.
    bool keepsItsHandsOff(bool bit) const
    {
        const auto end = std::chrono::steady_clock::now() + HandOverPause;
        while (std::chrono::steady_clock::now() < end) {
            if ((readByte(m_record + BitAt) != 0) != bit)
                return false;
            std::this_thread::sleep_for(Glance);
        }
        return true;
    }

    unsigned long m_record;
    unsigned long m_data;
};

} // namespace

int main(int argc, char** argv)
{
    const std::span<char*> arguments(argv, static_cast<std::size_t>(argc));
    const std::string_view what = argc > 1 ? arguments[1] : "";
    const auto number = [arguments](std::size_t index) {
        return index < arguments.size() ? std::strtoul(arguments[index], nullptr, 10) : 0;
    };
    bool done = false;
    if (what == "write")
        done = writeTimes(number(2));
    else if (what == "register")
        done = registerTags();
    else if (what == "unregister")
        done = TagMemory::UnRegSync(number(2), 10) == 0;
    else if (what == "answer")
        done = Answerer().answer(arguments.subspan(2));
    else if (what == "handover")
        done = HandOver(number(2), number(3)).run(static_cast<std::uint32_t>(number(4)));
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
