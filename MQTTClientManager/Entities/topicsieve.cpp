#include "Entities/topicsieve.h"

#include "Entities/topicfilter.h"

#include <algorithm>
#include <string_view>

void TopicSieve::addFilter(const TopicFilter& filter, bool isSpecial)
{
    const std::string_view text = filter.utf8();
    const std::size_t hash = isSpecial ? text.find('#') : std::string_view::npos;
    const std::size_t plus = isSpecial ? text.rfind('+') : std::string_view::npos;
    const bool hasHash = hash != std::string_view::npos;
    const bool hasPlus = plus != std::string_view::npos;

    // What every topic that matches by one of the rules ends with, or what it has ahead of the filter's "#". With both
    // wildcards the rules have nothing in common.
    std::string_view known = text;
    if (hasHash && hasPlus)
        known = text.substr(text.size());
    else if (hasHash)
        known = text.substr(0, hash);
    else if (hasPlus)
        known = text.substr(plus + 1);

    Row row{0, 0, hasHash && !hasPlus ? static_cast<std::uint32_t>(hash) : TopicsEnd};
    const std::size_t count = std::min(known.size(), sizeof row.bytes);
    const std::size_t unknown = sizeof row.bytes - count;
    std::memcpy(reinterpret_cast<char*>(&row.bytes) + unknown, known.data() + known.size() - count, count);
    std::memset(reinterpret_cast<char*>(&row.mask) + unknown, 0xFF, count);
    m_rows.push_back(row);
}

void TopicSieve::addNone()
{
    m_rows.push_back({0, 0, Nowhere});
}
