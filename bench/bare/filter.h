#pragma once

#include <string>

// A topic filter by the service's rules, compared byte by byte where it stands.
class Filter
{
public:
    explicit Filter(std::string text);

    const std::string& text() const { return m_text; }
    // `topic` has `size` bytes and a zero byte behind them.
    bool matches(const char* topic, std::size_t size) const;

private:
    bool matchesLevels(const char* topic) const;
    static bool isWholeLevel(const char* begin, const char* place);

    std::string m_text;
    bool m_hasPlus;
    std::size_t m_prefixSize; // bytes ahead of the first "#"; npos, more than any topic has, without one
};
