#include "bench/bare/filter.h"

#include <cstring>
#include <utility>

Filter::Filter(std::string text)
    : m_text(std::move(text)), m_hasPlus(m_text.find('+') != std::string::npos), m_prefixSize(m_text.find('#'))
{
}

bool Filter::matches(const char* topic, std::size_t size) const
{
    if (size == m_text.size() && std::memcmp(topic, m_text.data(), size) == 0)
        return true;
    if (m_hasPlus && matchesLevels(topic))
        return true;
    return m_prefixSize <= size && std::memcmp(topic, m_text.data(), m_prefixSize) == 0;
}

bool Filter::matchesLevels(const char* topic) const
{
    const char* const begin = m_text.c_str();
    for (const char* filter = begin; *filter != '\0'; ++filter) {
        if (*filter == '+' && isWholeLevel(begin, filter)) {
            while (*topic != '\0' && *topic != '/')
                ++topic;
        } else if (*filter == *topic) {
            ++topic;
        } else {
            return false;
        }
    }
    return *topic == '\0';
}

bool Filter::isWholeLevel(const char* begin, const char* place)
{
    return (place == begin || place[-1] == '/') && (place[1] == '/' || place[1] == '\0');
}
