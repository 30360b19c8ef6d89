#include "check/wording.h"

#include "nearestname.h"
#include "output.h"

namespace plcctl::check {

namespace {

constexpr int LongestQuote = 80; // characters
constexpr int LongestPath = 400; // characters; those that exist are hardly ever longer

std::string cutAndQuoted(const QString& text, int longest)
{
    if (text.size() <= longest)
        return inQuotes(text.toStdString());
    return inQuotes(text.left(longest).toStdString()) + "...";
}

} // namespace

QString named(std::string_view utf8)
{
    return QString::fromUtf8(utf8.data(), static_cast<int>(utf8.size()));
}

std::string quoted(const QString& text)
{
    return cutAndQuoted(text, LongestQuote);
}

std::string quotedPath(const std::string& path)
{
    return cutAndQuoted(QString::fromStdString(path), LongestPath);
}

std::string suggestion(std::span<const std::string> names, const QString& text)
{
    const std::string nearest = nearestName(names, text.left(LongestQuote).toStdString());
    return nearest.empty() ? "" : " (did you mean '" + nearest + "'?)";
}

std::string counted(std::int64_t count, const char* one)
{
    return std::to_string(count) + " " + one + (count == 1 ? "" : "s");
}

} // namespace plcctl::check
