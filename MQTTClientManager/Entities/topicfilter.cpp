#include "Entities/topicfilter.h"

#include <cstring>

TopicFilter::TopicFilter(const QString& text) : m_text(text), m_utf8(text.toUtf8()), m_prefixSize(m_utf8.indexOf('#'))
{
    const char* level = m_utf8.constData();
    while (true) {
        const std::size_t size = std::strcspn(level, "/");
        // Intended: a "+" beside other characters is no wildcard.
        m_levels.push_back({level, size, size == 1 && *level == '+'});
        if (level[size] == '\0')
            return;
        level += size + 1;
    }
}

bool TopicFilter::equals(const char* topic) const
{
    return std::strcmp(topic, m_utf8.constData()) == 0;
}

bool TopicFilter::matchesLevels(const char* topic) const
{
    for (const Level& level : m_levels) {
        if (level.isWildcard)
            topic += std::strcspn(topic, "/");
        else if (std::strncmp(topic, level.text, level.size) == 0)
            topic += level.size;
        else
            return false;

        const bool isLast = &level == &m_levels.back();
        if (*topic != (isLast ? '\0' : '/'))
            return false;
        ++topic;
    }
    return true;
}

bool TopicFilter::matchesPrefix(const char* topic) const
{
    // Intended: neither the level that the "#" stands in nor what follows it counts, and a "+" ahead of it is no
    // wildcard.
    if (m_prefixSize < 0)
        return equals(topic);
    return std::strncmp(topic, m_utf8.constData(), static_cast<std::size_t>(m_prefixSize)) == 0;
}
