#pragma once

#include "entities.h"
#include "livedata.h"
#include "text.h"

#include "Records/requestrecords.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace plcctl::live {

enum class View
{
    Overview,
    Brokers,
    Publications,
    Subscriptions,
    Log
};

inline constexpr std::size_t Views = 5;

// How one of the views is looked at.
struct ViewState
{
    std::string filter;
    std::optional<std::size_t> sortedBy; // a column; nothing for the order of the files, or of the log
    bool descending = false;
    std::optional<std::uint64_t> selected; // the key of a row; nothing for the first one
};

// A request as the user asked for it.
struct WantedRequest
{
    std::string name; // "connect"
    RequestOpcode opcode;
    std::optional<EntityReference> entity;
    std::int8_t publishState = 0;
};

enum class Overlay
{
    None,
    Help,
    Details // of the selected row
};

// What the user has made of the view so far.
struct UiState
{
    Charset charset = Charset::Ascii;
    View view = View::Overview;
    std::array<ViewState, Views> views;
    Severity mildest = Severity::Info; // of the log rows that are shown
    bool paused = false;
    Overlay overlay = Overlay::None;
    std::size_t scrolled = 0;           // lines of the overlay
    std::optional<std::string> typed;   // a filter while it is typed
    std::optional<WantedRequest> asked; // waits for y or n
    std::string message;                // one line for the user; safe
    int width = 80;                     // of the terminal, as it was drawn last
    std::size_t pageLines = 1;          // rows or lines of a page, as it was drawn last

    [[nodiscard]] ViewState& current() { return views[static_cast<std::size_t>(view)]; }

    [[nodiscard]] const ViewState& current() const { return views[static_cast<std::size_t>(view)]; }
};

} // namespace plcctl::live
