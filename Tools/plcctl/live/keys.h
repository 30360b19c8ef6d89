#pragma once

#include "livedata.h"
#include "uistate.h"

#include <optional>

namespace plcctl::live {

// Keys that are no characters. Characters have their code point.
enum Key : char32_t
{
    KeyUp = 0x110000,
    KeyDown,
    KeyLeft,
    KeyRight,
    KeyPageUp,
    KeyPageDown,
    KeyHome,
    KeyEnd,
    KeyEnter,
    KeyEscape,
    KeyBackspace,
    KeyTab,
    KeyBackTab
};

struct KeyEffect
{
    bool quit = false;
    bool pauseChanged = false;
    std::optional<WantedRequest> send;
};

// What a key does; `data` is what is on the screen.
KeyEffect press(UiState& state, char32_t key, const LiveData& data);

} // namespace plcctl::live
