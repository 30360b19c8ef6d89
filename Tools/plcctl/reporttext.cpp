#include "reporttext.h"

#include <algorithm>

namespace plcctl {

namespace {

constexpr std::size_t LabelWidth = 16;

} // namespace

std::string lineHead(std::string label, std::optional<std::uint32_t> address)
{
    label.resize(std::max(label.size() + 1, LabelWidth), ' ');
    return address ? label + "at " + std::to_string(*address) + ": " : label;
}

std::string absence(std::optional<std::uint32_t> address)
{
    return address ? "outside tag memory" : "no address, because the configuration can't be read";
}

std::string describe(CodeDomain domain, int code)
{
    const CodeText text = describeCode(domain, code);
    const std::string number = std::to_string(code);
    const std::string name = *text.name == '\0' ? number : text.name + (" (" + number + ")");
    return name + ", " + text.text;
}

std::string flag(std::uint8_t byte, const char* yes, const char* no)
{
    return byte == 0 ? no : byte == 1 ? yes : yes + (" (byte " + std::to_string(byte) + ")");
}

Json codeJson(CodeDomain domain, int code)
{
    const CodeText text = describeCode(domain, code);
    return {{"code", code}, {"name", text.name}, {"text", text.text}};
}

} // namespace plcctl
