#pragma once

#include <cstdint>
#include <QString>
#include <span>
#include <string>
#include <string_view>

namespace plcctl::check {

QString named(std::string_view utf8);

// In quotes, on one line, and cut where it is long: it comes from a file that may hold anything.
std::string quoted(const QString& text);

// The same for the path of a file, which somebody may want to copy: only one that can hardly exist is cut.
std::string quotedPath(const std::string& path);

// " (did you mean 'Port'?)", or nothing where no name is near.
std::string suggestion(std::span<const std::string> names, const QString& text);

// "1 byte", "12 bytes"
std::string counted(std::int64_t count, const char* one);

} // namespace plcctl::check
