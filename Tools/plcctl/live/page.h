#pragma once

#include "livedata.h"
#include "table.h"
#include "uistate.h"

#include <vector>

namespace plcctl::live {

// The smallest terminal that the view fits into.
inline constexpr int SmallestWidth = 64;
inline constexpr int SmallestHeight = 12;

// All lines of the screen, each `width` columns at most. Notes in `state` how large a page is and how far an overlay
// can be scrolled.
std::vector<Line> drawPage(const LiveData& data, UiState& state, int width, int height);

// The parts of it that have files of their own.
std::vector<Line> overviewLines(const LiveData& data, Charset charset, int width, int height);
std::vector<Line> detailLines(const LiveData& data, const UiState& state, int width);
std::vector<Line> helpLines();

} // namespace plcctl::live
