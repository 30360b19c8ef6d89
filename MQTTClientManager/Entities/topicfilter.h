#pragma once

#include <QByteArray>
#include <QString>
#include <vector>

// A subscription's topic filter, taken apart once, so that comparing it with a message's topic costs no allocation. The
// rules are this service's own; docs/subscriptions.md shows where they differ from the MQTT standard's. Topics are
// zero-terminated UTF-8 and are compared byte by byte.
class TopicFilter
{
public:
    TopicFilter() : TopicFilter(QString()) {}
    explicit TopicFilter(const QString& text);

    // True when this was made from `text`, the very object or an unchanged copy of it.
    [[nodiscard]] bool isOf(const QString& text) const { return m_text.constData() == text.constData(); }

    // As the client library wants it.
    [[nodiscard]] const char* utf8() const { return m_utf8.constData(); }

    // The filter as a whole stands in the topic's place.
    [[nodiscard]] bool equals(const char* topic) const;
    // Level by level: as many levels, each the same but where the filter's is "+".
    [[nodiscard]] bool matchesLevels(const char* topic) const;
    // What stands ahead of the filter's first "#" begins the topic; without a "#", the same as equals.
    [[nodiscard]] bool matchesPrefix(const char* topic) const;

private:
    struct Level
    {
        const char* text; // in m_utf8, not terminated
        std::size_t size;
        bool isWildcard;
    };

    QString m_text;
    QByteArray m_utf8; // never changed: m_levels points into it, in copies as well, since they share it
    int m_prefixSize;  // -1 without a "#"
    std::vector<Level> m_levels;
};
