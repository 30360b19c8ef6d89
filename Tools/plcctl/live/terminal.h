#pragma once

#include "table.h"

#include <chrono>
#include <optional>
#include <termios.h>
#include <vector>

namespace plcctl::live {

// The terminal as a full screen. Whatever ends the process but SIGKILL leaves the terminal as it was. One at a time.
class Terminal
{
public:
    // Throws Failure (usage) where there is no terminal, or one of a kind that nobody knows.
    Terminal();

    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    ~Terminal();

    [[nodiscard]] Charset charset() const { return m_charset; }

    // Of the screen, now.
    [[nodiscard]] int width() const;
    [[nodiscard]] int height() const;

    void draw(const std::vector<Line>& lines);

    // The next key, a Key or a code point; nothing when none came in time, the size changed, or the end came.
    [[nodiscard]] std::optional<char32_t> key(std::chrono::milliseconds patience);

    // Ctrl-C, a signal to end, or a terminal that is gone.
    [[nodiscard]] bool isEnding() const { return m_isEnding; }

private:
    void takeSignals();
    void takeScreen();
    void followSize();
    void setStyle(Style style);
    [[nodiscard]] std::optional<char32_t> readKey();

    Charset m_charset = Charset::Ascii;
    bool m_hasColors = false;
    bool m_isEnding = false;
    int m_signals = -1; // descriptor
    int m_emptyReads = 0;
    void* m_screen = nullptr; // SCREEN of the library
};

} // namespace plcctl::live
