#include "answerwatch.h"

#include <ctime>

namespace plcctl {

AnswerWatch::AnswerWatch(const TagReader& reader, std::uint64_t position)
    : m_reader(reader), m_position(position), m_cursor(reader.image(), writesEver(reader.image())), m_last(present())
{
}

void AnswerWatch::look(const std::function<bool(const Answer&)>& take)
{
    while (const auto step = m_cursor.step()) {
        const auto answer = answerIn(*step);
        if (answer && !take(*answer))
            return;
    }
}

std::optional<Answer> AnswerWatch::answerIn(const JournalCursor::Step& step)
{
    std::uint8_t value = 0;
    std::int64_t time = 0;
    if (step.write) {
        const std::uint64_t offset = m_position - step.write->position; // huge for a write behind the byte
        if (offset >= step.write->size)
            return std::nullopt;
        value = offset < step.write->bytes.size() ? step.write->bytes[offset] : present();
        time = step.write->timeNanoseconds;
    } else {
        m_lost += step.lost;
        value = present();
        time = journalNanoseconds();
        if (value == m_last)
            return std::nullopt;
    }
    m_last = value;
    return Answer{static_cast<std::int8_t>(value), time};
}

std::uint8_t AnswerWatch::present() const
{
    return m_reader.read(m_position, 1).front();
}

std::int64_t journalNanoseconds()
{
    constexpr std::int64_t NanosecondsPerSecond = 1'000'000'000;
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now.tv_sec * NanosecondsPerSecond + now.tv_nsec;
}

} // namespace plcctl
