#include "commands.h"
#include "explain/codeexplanations.h"
#include "nearestname.h"
#include "output.h"

#include <algorithm>
#include <memory>

namespace plcctl {

namespace {

struct ExplainArguments
{
    std::string code;
    std::string place;
    bool json = false;
};

// "-11 (byte 245, 0xF5)": records and status bytes hold the low byte.
std::string numberOf(const CodeExplanation& explanation)
{
    std::string text = std::to_string(explanation.code);
    if (explanation.code >= 0)
        return text;
    const auto byte = static_cast<std::uint8_t>(explanation.code);
    std::string digits = hexBytes({&byte, 1});
    std::transform(digits.begin(), digits.end(), digits.begin(), [](unsigned char c) { return std::toupper(c); });
    return text + " (byte " + std::to_string(byte) + ", 0x" + digits + ")";
}

Json jsonOf(const CodeExplanation& explanation)
{
    return {{"code", explanation.code},         {"byte", static_cast<std::uint8_t>(explanation.code)},
            {"name", explanation.name},         {"place", explanation.place->key},
            {"where", explanation.place->text}, {"meaning", explanation.meaning},
            {"advice", explanation.advice}};
}

std::string nameAndMeaning(const CodeExplanation& explanation)
{
    const std::string name(explanation.name);
    return (name.empty() ? "" : name + ": ") + std::string(explanation.meaning);
}

// One code: all that it may mean, with what to do.
void printInFull(const std::vector<CodeExplanation>& found)
{
    for (const CodeExplanation& explanation : found) {
        printLine(numberOf(explanation) + ", " + std::string(explanation.place->text));
        printLine("    " + nameAndMeaning(explanation));
        if (!explanation.advice.empty())
            printLine("    what to do: " + std::string(explanation.advice));
    }
}

void printList(const std::vector<CodeExplanation>& all)
{
    constexpr std::size_t NumberWidth = 24;
    const CodePlace* place = nullptr;
    for (const CodeExplanation& explanation : all) {
        if (explanation.place != place) {
            place = explanation.place;
            printLine(std::string(place->key) + ": " + std::string(place->text));
        }
        std::string line = "  " + numberOf(explanation);
        line.resize(std::max(line.size() + 1, NumberWidth), ' ');
        printLine(line + nameAndMeaning(explanation));
    }
}

[[noreturn]] void refuse(const std::string& text)
{
    std::vector<std::string> names;
    for (const CodeExplanation& explanation : allExplanations())
        names.emplace_back(explanation.name);
    const std::string nearest = nearestName(names, text);
    throw Failure(ExitCode::Usage,
                  "there is no code " + inQuotes(text) +
                      (nearest.empty() ? "; 'plcctl explain' lists them all" : "; did you mean " + nearest + "?"));
}

std::vector<CodeExplanation> find(const std::string& text)
{
    if (text.empty())
        return allExplanations();
    const auto code = parseCode(text);
    std::vector<CodeExplanation> found = code ? explanationsOf(*code) : explanationsOf(std::string_view(text));
    if (found.empty())
        refuse(text);
    return found;
}

ExitCode explain(const ExplainArguments& arguments)
{
    std::vector<CodeExplanation> found = find(arguments.code);
    if (!arguments.place.empty())
        std::erase_if(found, [&](const CodeExplanation& each) { return each.place->key != arguments.place; });
    if (found.empty())
        throw Failure(ExitCode::Usage, inQuotes(arguments.code) + " has no meaning as " + arguments.place);
    if (arguments.json) {
        for (const CodeExplanation& explanation : found)
            printJson(jsonOf(explanation));
        return ExitCode::Done;
    }
    if (arguments.code.empty())
        printList(found);
    else
        printInFull(found);
    return ExitCode::Done;
}

} // namespace

void addExplainCommand(CLI::App& app, Action& action)
{
    const auto arguments = std::make_shared<ExplainArguments>();
    CLI::App* command = app.add_subcommand("explain", "Tell what a status code means and what to do about it");
    command->add_option("CODE", arguments->code, "A number as a record, a status byte or the log shows it, or a name");
    std::vector<std::string> places;
    for (const CodePlace& place : codePlaces())
        places.emplace_back(place.key);
    command->add_option("--in", arguments->place, "Only what it means there")
        ->type_name("PLACE")
        ->check(CLI::IsMember(places));
    command->add_flag("--json", arguments->json, "Print JSON, one object a line");
    command->footer("Status blocks and status bytes hold one byte: -11 stands there as 245 or 0xF5.\n"
                    "Without CODE all codes are listed.\n"
                    "Examples:\n"
                    "  plcctl explain -11\n"
                    "  plcctl explain 0xF5 --in broker\n"
                    "  plcctl explain SC_AC_ERROR_INVALID_ID\n"
                    "  plcctl explain");
    command->callback([&action, arguments] { action = [arguments] { return explain(*arguments); }; });
}

} // namespace plcctl
