#pragma once

#include "check/checking.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

// A configuration in memory without a single finding, to spoil.
class CheckedPlant
{
public:
    CheckedPlant();

    // Puts `to` in place of `from`, which has to stand there.
    CheckedPlant& replace(plcctl::check::FileIndex file, std::string_view from, std::string_view to);
    CheckedPlant& setText(plcctl::check::FileIndex file, std::string text);
    [[nodiscard]] const std::string& text(plcctl::check::FileIndex file) const { return m_texts.at(file); }

    // Line and column of the first place where `part` stands.
    [[nodiscard]] plcctl::check::Place placeOf(plcctl::check::FileIndex file, std::string_view part) const;

    [[nodiscard]] std::vector<plcctl::check::Finding> findings() const;

private:
    std::array<std::string, plcctl::check::ConfigurationFiles> m_texts;
};

// For messages of tests: one line each.
std::string linesOf(const std::vector<plcctl::check::Finding>& findings);
