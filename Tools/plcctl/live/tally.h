#pragma once

#include "deviceconfig.h"
#include "journalcursor.h"

#include <cstdint>
#include <optional>
#include <unordered_map>

namespace plcctl::live {

// What the journal of tag memory tells of the service: which process it is, and how often and when it wrote its
// records and acknowledgements. A record is told from a tag by its place and size: the service writes each as a whole.
class Tally
{
public:
    struct Count
    {
        std::uint64_t events = 0;                     // acknowledgements, arrivals, or losses of a broker
        std::optional<std::int64_t> eventNanoseconds; // of the last one; clock as in the journal
        std::optional<std::int64_t> writeNanoseconds; // of the last write, event or not
    };

    // Counts anew, at the places that this configuration names.
    void watch(const DeviceConfig& config);

    // Takes what was written since the last call, at first all that the journal holds.
    void look(const TagMemoryImage::Image& image);

    // Counts anew: there is another tag memory, with another journal.
    void restart();

    // At the acknowledgement byte of a publication, the record of a subscription or the status block of a broker.
    [[nodiscard]] Count at(std::uint64_t position) const;

    // The process that wrote a record of the service last; nothing if the journal no longer holds any.
    [[nodiscard]] std::optional<std::int32_t> processId() const { return m_processId; }

    // Writes that were overwritten before they could be read, since the first look.
    [[nodiscard]] std::uint64_t lost() const { return m_lost; }

private:
    enum class Kind
    {
        Record,
        BrokerBlock,
        SubscriptionRecord,
        Acknowledgement
    };

    struct Place
    {
        Kind kind;
        std::uint32_t size;
        Count count;
    };

    void take(const TagMemoryImage::Write& write);
    [[nodiscard]] static bool isEvent(Kind kind, const TagMemoryImage::Write& write);

    std::unordered_map<std::uint64_t, Place> m_places;
    std::optional<JournalCursor> m_cursor;
    std::optional<std::int32_t> m_processId;
    std::uint64_t m_lost = 0;
};

} // namespace plcctl::live
