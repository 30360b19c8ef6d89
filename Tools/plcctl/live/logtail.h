#pragma once

#include "logrows.h"

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace plcctl::live {

// Follows the service's log file over its rolling: the full file is moved aside and a new one takes its place.
class LogTail
{
public:
    explicit LogTail(std::string path) : m_path(std::move(path)) {}

    LogTail(const LogTail&) = delete;
    LogTail& operator=(const LogTail&) = delete;

    ~LogTail();

    // The rows since the last call, at first the last ones of the file. Of very many, the older ones are left out.
    [[nodiscard]] std::vector<LogRow> look();

    // Bytes of the log that were left out so far, other than at the beginning.
    [[nodiscard]] std::uint64_t skipped() const { return m_skipped; }

    // Why there is nothing to read; empty while the file is open.
    [[nodiscard]] const std::string& problem() const { return m_problem; }

private:
    void open();
    void close();
    [[nodiscard]] bool isMovedAside() const;
    void skipTooMuch();
    void readOn(std::vector<LogRow>& rows);

    std::string m_path;
    int m_descriptor = -1;
    off_t m_at = 0;
    bool m_first = true;
    std::uint64_t m_skipped = 0;
    std::string m_problem;
    LogRows m_rows;
};

} // namespace plcctl::live
