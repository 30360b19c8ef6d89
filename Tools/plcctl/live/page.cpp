#include "page.h"

#include "output.h"
#include "reporttext.h"
#include "views.h"

#include <algorithm>

namespace plcctl::live {

namespace {

constexpr int LinesAround = 4; // title, views, message, keys

std::string serviceText(const LiveData& data)
{
    if (data.hasProcessEnded)
        return "NOT RUNNING: process " + std::to_string(*data.processId) + " has ended, its last values are shown";
    if (!data.general)
        return "no general record to read";
    const CodeText text = describeCode(CodeDomain::Process, data.general->m_ProcessStatus);
    const std::string name = *text.name == '\0' ? std::to_string(data.general->m_ProcessStatus) : text.name;
    const bool isSilent = data.general->m_ProcessStatus == PS_STARTING && !data.processId;
    return isSilent ? "no service has written here yet" : name + (data.processId ? "" : ", process unknown");
}

Style serviceStyle(const LiveData& data)
{
    const bool runs = data.general && !data.hasProcessEnded && data.general->m_ProcessStatus == PS_RUNNING;
    return runs ? Style::Bar : Style::Selected;
}

// "2024-05-06 07:08:09"
std::string clockText(const LiveData& data)
{
    return localTime(data.timeNanoseconds).substr(0, 19);
}

Line titleLine(const LiveData& data, const UiState& state, int width)
{
    const std::string time = (state.paused ? "PAUSED at " : "") + clockText(data) + " ";
    const int rest = width - columnsOf(time);
    return {{fitted(" plcctl live  " + serviceText(data), rest, Align::Left, state.charset), serviceStyle(data)},
            {fitted(time, width - rest, Align::Left, state.charset), state.paused ? Style::Selected : Style::Bar}};
}

Line viewsLine(const LiveData& data, const UiState& state, int width)
{
    Line line;
    int used = 0;
    for (std::size_t at = 0; at < Views; ++at) {
        const bool isCurrent = at == static_cast<std::size_t>(state.view);
        const std::string text = " " + std::to_string(at + 1) + " " + nameOf(static_cast<View>(at)) + " ";
        line.push_back({text, isCurrent ? Style::Selected : Style::Dim});
        used += columnsOf(text);
    }
    std::string notes;
    if (state.view == View::Log)
        notes += std::string("  ") + nameOf(state.mildest) + " and worse";
    if (state.view == View::Log && data.logBytesSkipped > 0)
        notes += ", " + std::to_string(data.logBytesSkipped / 1024 + 1) + " KiB left out";
    if (!state.current().filter.empty())
        notes += "  filter: " + safe(state.current().filter, state.charset);
    line.push_back({fitted(notes, width - used, Align::Left, state.charset), Style::Warning});
    return line;
}

Line messageLine(const UiState& state, int width)
{
    const std::string text = state.typed ? "filter: " + safe(*state.typed, state.charset) + "_" : state.message;
    return {{fitted(text, width, Align::Left, state.charset), Style::Strong}};
}

const char* keysOf(const UiState& state)
{
    if (state.asked)
        return " y send  any other key: don't";
    if (state.typed)
        return " Enter filter  Esc leave it as it was";
    if (state.overlay != Overlay::None)
        return " Esc back  Up/Down scroll  q quit";
    switch (state.view) {
    case View::Overview:
        return " 1-5 views  p hold  P pause service  S start service  ? help  q quit";
    case View::Brokers:
        return " c connect  d disconnect  u/U (un)subscribe all  /filter s sort  ? help  q quit";
    case View::Publications:
        return " n send now  t/T timed on/off  / filter  s sort  Enter more  ? help  q quit";
    case View::Subscriptions:
        return " u subscribe  U unsubscribe  / filter  s sort  Enter more  ? help  q quit";
    case View::Log:
        return " v severity  / filter  s sort  p hold  Enter more  ? help  q quit";
    }
    return "";
}

void append(std::vector<Line>& lines, const std::vector<Line>& more)
{
    lines.insert(lines.end(), more.begin(), more.end());
}

// The lines from the one that it is scrolled to, as far as there are so many.
std::vector<Line> scrolledLines(const std::vector<Line>& lines, UiState& state, int height)
{
    const auto room = static_cast<std::size_t>(height);
    const std::size_t last = lines.size() > room ? lines.size() - room : 0;
    state.scrolled = std::min(state.scrolled, last);
    const auto begin = lines.begin() + static_cast<std::ptrdiff_t>(state.scrolled);
    return {begin, begin + static_cast<std::ptrdiff_t>(std::min(room, lines.size() - state.scrolled))};
}

std::vector<Line> tableLines(const LiveData& data, const UiState& state, int width, int height)
{
    const Table table = shownTable(data, state);
    const ViewState& view = state.current();
    std::vector<Line> lines{headLine(table, width, view.sortedBy, view.descending, state.charset)};
    if (table.rows.empty())
        lines.push_back({{fitted(table.empty, width, Align::Left, state.charset), Style::Dim}});
    const auto room = static_cast<std::size_t>(std::max(height - 1, 1));
    const std::size_t selected = selectedRow(table, view).value_or(0);
    // The selected row stays in the middle, as far as there are rows around it.
    const std::size_t last = table.rows.size() > room ? table.rows.size() - room : 0;
    const std::size_t first = std::min(selected > room / 2 ? selected - room / 2 : 0, last);
    for (std::size_t at = first; at < std::min(first + room, table.rows.size()); ++at)
        lines.push_back(rowLine(table, table.rows[at], width, at == selected, state.charset));
    return lines;
}

std::vector<Line> problemLines(const LiveData& data, const UiState& state, int width)
{
    std::vector<Line> lines;
    if (data.problems.empty())
        return lines;
    const std::size_t more = data.problems.size() - 1;
    const std::string text =
        safe(data.problems.front(), state.charset) + (more > 0 ? " (and " + std::to_string(more) + " more)" : "");
    for (const std::string& line : wrapped(text, width))
        lines.push_back({{line, Style::Bad}});
    constexpr std::size_t Most = 3;
    lines.resize(std::min(lines.size(), Most));
    return lines;
}

std::vector<Line> bodyLines(const LiveData& data, UiState& state, int width, int height)
{
    state.pageLines = static_cast<std::size_t>(std::max(height - 1, 1));
    if (state.overlay == Overlay::Help)
        return scrolledLines(helpLines(), state, height);
    if (state.overlay == Overlay::Details)
        return scrolledLines(detailLines(data, state, width), state, height);
    if (state.view == View::Overview)
        return overviewLines(data, state.charset, width, height);
    return tableLines(data, state, width, height);
}

} // namespace

std::vector<Line> drawPage(const LiveData& data, UiState& state, int width, int height)
{
    if (width < SmallestWidth || height < SmallestHeight) {
        const std::string text = "too small: " + std::to_string(SmallestWidth) + "x" + std::to_string(SmallestHeight) +
                                 " at least, this is " + std::to_string(width) + "x" + std::to_string(height);
        return {{{fitted(text, width, Align::Left, state.charset), Style::Strong}}};
    }
    state.width = width;
    std::vector<Line> lines{titleLine(data, state, width), viewsLine(data, state, width)};
    append(lines, problemLines(data, state, width));
    const int room = height - LinesAround - static_cast<int>(lines.size() - 2);
    append(lines, bodyLines(data, state, width, room));
    lines.resize(static_cast<std::size_t>(height) - 2);
    lines.push_back(messageLine(state, width));
    lines.push_back({{fitted(keysOf(state), width, Align::Left, state.charset), Style::Bar}});
    return lines;
}

} // namespace plcctl::live
