#pragma once

#include "text.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace plcctl::live {

// How a piece of text stands out. On a terminal without colours, Good is plain, Bad bold and Warning underlined.
enum class Style
{
    Plain,
    Dim,
    Strong,
    Good,
    Warning,
    Bad,
    Bar,     // of the headings and the keys
    Selected // a whole line
};

struct Cell
{
    std::string text; // safe
    Style style = Style::Plain;
    std::optional<double> number = std::nullopt; // to sort by, in place of the text
};

struct Column
{
    const char* title;
    int width; // columns of the terminal; 0 takes what the others leave
    Align align = Align::Left;
    int fromWidth = 0; // the width of a terminal from which on it is shown
};

struct TableRow
{
    std::uint64_t key; // stays with the row from look to look
    std::vector<Cell> cells;
};

struct Table
{
    std::vector<Column> columns;
    std::vector<TableRow> rows;
    std::string empty; // shown in place of rows
};

// A piece of a line in one style.
struct Span
{
    std::string text; // safe
    Style style = Style::Plain;
};

using Line = std::vector<Span>;

// The rows in one of whose cells the text stands, in any case.
void filter(Table& table, const std::string& text);

// By a column; rows that are equal there stay in their order, and those without a value come last.
void sort(Table& table, std::size_t column, bool descending);

// The head of the table, and one of its rows, in exactly `width` columns.
Line headLine(const Table& table, int width, std::optional<std::size_t> sortedBy, bool descending, Charset charset);
Line rowLine(const Table& table, const TableRow& row, int width, bool selected, Charset charset);

// Whether a terminal of this width has room for the column.
bool isShown(const Column& column, int width);

} // namespace plcctl::live
