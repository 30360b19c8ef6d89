#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace plcctl {

// Where a code stands. The same number means different things in different places.
struct CodePlace
{
    std::string_view key;  // as the command line names it: "broker"
    std::string_view text; // for people: "last result in a broker's status block"
};

// A code at one place, with what it means and what to do about it. All texts are one line without a full stop.
struct CodeExplanation
{
    const CodePlace* place; // never null
    int code;
    std::string_view name; // the enumerator; empty for codes of the client library, a broker or a program
    std::string_view meaning;
    std::string_view advice; // empty where there is nothing to do
};

// Every code that a person may meet, by place and then by number, zeros first.
const std::vector<CodeExplanation>& allExplanations();

// The places in the order of the list.
std::vector<CodePlace> codePlaces();

// What people mean by a number in a record, a status byte or a log line: "-11", "245", "0xF5". A byte above 127 stands
// for its signed value as well. Nothing for any other text.
std::optional<int> parseCode(std::string_view text);

// All that a code may mean. A byte from 128 to 255 finds its signed value too.
std::vector<CodeExplanation> explanationsOf(int code);

// The explanations of one name, in any case.
std::vector<CodeExplanation> explanationsOf(std::string_view name);

} // namespace plcctl
