#pragma once

#include "livedata.h"
#include "table.h"
#include "uistate.h"

#include <cstddef>
#include <optional>

namespace plcctl::live {

const char* nameOf(View view);

// The rows of the current view as they are shown: filtered and sorted.
Table shownTable(const LiveData& data, const UiState& state);

// The place of the selected row among these; nothing if there is no row.
std::optional<std::size_t> selectedRow(const Table& table, const ViewState& state);

// By the next column that is shown; behind the last one in the order of the files.
void sortByNext(UiState& state, const LiveData& data);

// Moves in the rows, or in the lines of what lies over them. False for other keys.
bool move(UiState& state, char32_t key, const LiveData& data);

} // namespace plcctl::live
