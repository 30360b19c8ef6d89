#include "views.h"

#include "keys.h"
#include "tables.h"

#include <algorithm>

namespace plcctl::live {

namespace {

constexpr std::array<const char*, Views> ViewNames{"Overview", "Brokers", "Publications", "Subscriptions", "Log"};

void select(ViewState& view, const Table& table, std::ptrdiff_t place)
{
    if (table.rows.empty())
        return;
    const auto last = static_cast<std::ptrdiff_t>(table.rows.size()) - 1;
    place = std::clamp<std::ptrdiff_t>(place, 0, last);
    // The first row stays the first, whichever it will be: the log goes on at its top.
    if (place == 0)
        view.selected.reset();
    else
        view.selected = table.rows[static_cast<std::size_t>(place)].key;
}

} // namespace

const char* nameOf(View view)
{
    return ViewNames[static_cast<std::size_t>(view)];
}

Table shownTable(const LiveData& data, const UiState& state)
{
    Table table;
    switch (state.view) {
    case View::Overview:
        break;
    case View::Brokers:
        table = brokersTable(data, state.charset);
        break;
    case View::Publications:
        table = publicationsTable(data, state.charset);
        break;
    case View::Subscriptions:
        table = subscriptionsTable(data, state.charset);
        break;
    case View::Log:
        table = logTable(data, state.mildest, state.charset);
        break;
    }
    const ViewState& view = state.current();
    const bool hadRows = !table.rows.empty();
    filter(table, view.filter);
    if (hadRows && table.rows.empty())
        table.empty = "no row has this in it: Esc takes the filter away";
    if (view.sortedBy)
        sort(table, *view.sortedBy, view.descending);
    return table;
}

std::optional<std::size_t> selectedRow(const Table& table, const ViewState& state)
{
    if (table.rows.empty())
        return std::nullopt;
    const auto found = std::find_if(table.rows.begin(), table.rows.end(),
                                    [&state](const TableRow& row) { return state.selected == row.key; });
    return found == table.rows.end() ? 0 : static_cast<std::size_t>(found - table.rows.begin());
}

void sortByNext(UiState& state, const LiveData& data)
{
    const Table table = shownTable(data, state);
    std::optional<std::size_t>& column = state.current().sortedBy;
    std::size_t next = column ? *column + 1 : 0;
    while (next < table.columns.size() && !isShown(table.columns[next], state.width))
        ++next;
    column = next < table.columns.size() ? std::optional(next) : std::nullopt;
}

bool move(UiState& state, char32_t key, const LiveData& data)
{
    constexpr std::ptrdiff_t Far = 1'000'000;
    const auto page = static_cast<std::ptrdiff_t>(state.pageLines);
    std::ptrdiff_t step = 0;
    switch (key) {
    case KeyUp:
    case U'k':
        step = -1;
        break;
    case KeyDown:
    case U'j':
        step = 1;
        break;
    case KeyPageUp:
        step = -page;
        break;
    case KeyPageDown:
        step = page;
        break;
    case KeyHome:
        step = -Far;
        break;
    case KeyEnd:
        step = Far;
        break;
    default:
        return false;
    }
    if (state.overlay != Overlay::None) {
        const auto scrolled = static_cast<std::ptrdiff_t>(state.scrolled) + step;
        state.scrolled = static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(scrolled, 0, Far));
        return true;
    }
    const Table table = shownTable(data, state);
    const auto place = static_cast<std::ptrdiff_t>(selectedRow(table, state.current()).value_or(0));
    select(state.current(), table, place + step);
    return true;
}

} // namespace plcctl::live
