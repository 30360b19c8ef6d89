#pragma once

#include <string>
#include <vector>

// What the service logs while one of these lives: "SEVERITY message", in order, at debug severity and above.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] std::vector<std::string> lines() const;
    [[nodiscard]] bool contains(const std::string& line) const;
    [[nodiscard]] int count(const std::string& line) const;
};
