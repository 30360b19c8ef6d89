#include "nearestname.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <vector>

namespace plcctl {

namespace {

constexpr std::size_t FarthestMistake = 3; // single characters that were left out, added or mistyped

std::size_t editDistance(std::string_view from, std::string_view to)
{
    // The distances from a beginning of `from` to each beginning of `to`, one row for each character of `from`.
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char character : from) {
        std::size_t diagonal = row[0]++;
        for (std::size_t at = 0; at < to.size(); ++at) {
            const std::size_t exchange = diagonal + (character == to[at] ? 0 : 1);
            diagonal = row[at + 1];
            row[at + 1] = std::min({exchange, diagonal + 1, row[at] + 1});
        }
    }
    return row.back();
}

} // namespace

std::string lowered(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](unsigned char c) { return std::tolower(c); });
    return result;
}

std::string nearestName(std::span<const std::string> names, std::string_view text)
{
    std::string nearest;
    std::size_t shortest = FarthestMistake + 1;
    for (const std::string& name : names) {
        const std::size_t distance = editDistance(lowered(text), lowered(name));
        // A name of which nothing is left was not meant.
        if (distance < shortest && distance < name.size()) {
            shortest = distance;
            nearest = name;
        }
    }
    return nearest;
}

} // namespace plcctl
