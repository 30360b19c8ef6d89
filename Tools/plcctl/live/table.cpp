#include "table.h"

#include "utf.h"

#include <algorithm>
#include <cwctype>

namespace plcctl::live {

namespace {

constexpr int Gap = 1;

std::u32string folded(const std::string& text)
{
    std::u32string result = decodeUtf8Lossy(text);
    for (char32_t& c : result)
        c = static_cast<char32_t>(std::towlower(static_cast<std::wint_t>(c)));
    return result;
}

// The width of the column that takes what the others leave.
int widthOfRest(const Table& table, int width)
{
    int used = 0;
    for (const Column& column : table.columns) {
        if (isShown(column, width))
            used += column.width + Gap;
    }
    return std::max(width - used, 1);
}

// Calls `put` with the number and the width of each column that is shown.
template<typename Put>
void forEachShown(const Table& table, int width, Put put)
{
    const int rest = widthOfRest(table, width);
    for (std::size_t at = 0; at < table.columns.size(); ++at) {
        const Column& column = table.columns[at];
        if (isShown(column, width))
            put(at, column.width > 0 ? column.width : rest);
    }
}

// Less than 0, 0, or more, as for strcmp; a missing number is more than any.
int compare(const Cell& one, const Cell& other)
{
    if (one.number && other.number)
        return *one.number < *other.number ? -1 : *one.number > *other.number ? 1 : 0;
    if (one.number || other.number)
        return one.number ? -1 : 1;
    return folded(one.text).compare(folded(other.text));
}

} // namespace

bool isShown(const Column& column, int width)
{
    return width >= column.fromWidth;
}

void filter(Table& table, const std::string& text)
{
    if (text.empty())
        return;
    const std::u32string wanted = folded(text);
    const auto has = [&wanted](const Cell& cell) { return folded(cell.text).find(wanted) != std::u32string::npos; };
    std::erase_if(table.rows,
                  [&has](const TableRow& row) { return std::none_of(row.cells.begin(), row.cells.end(), has); });
}

void sort(Table& table, std::size_t column, bool descending)
{
    if (column >= table.columns.size())
        return;
    std::stable_sort(table.rows.begin(), table.rows.end(), [=](const TableRow& one, const TableRow& other) {
        const Cell& left = one.cells[column];
        const Cell& right = other.cells[column];
        const bool turned = descending && left.number.has_value() == right.number.has_value();
        return turned ? compare(right, left) < 0 : compare(left, right) < 0;
    });
}

Line headLine(const Table& table, int width, std::optional<std::size_t> sortedBy, bool descending, Charset charset)
{
    std::string text;
    forEachShown(table, width, [&](std::size_t at, int columnWidth) {
        const Column& column = table.columns[at];
        const std::string title = sortedBy == at ? std::string(column.title) + (descending ? "v" : "^") : column.title;
        text += fitted(title, columnWidth, column.align, charset) + " ";
    });
    return {{fitted(text, width, Align::Left, charset), Style::Strong}};
}

Line rowLine(const Table& table, const TableRow& row, int width, bool selected, Charset charset)
{
    Line line;
    int used = 0;
    forEachShown(table, width, [&](std::size_t at, int columnWidth) {
        if (used > 0)
            line.push_back({" ", selected ? Style::Selected : Style::Plain});
        const Cell& cell = row.cells[at];
        line.push_back({fitted(cell.text, columnWidth, table.columns[at].align, charset),
                        selected ? Style::Selected : cell.style});
        used += columnWidth + Gap;
    });
    return line;
}

} // namespace plcctl::live
