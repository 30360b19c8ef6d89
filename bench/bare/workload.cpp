#include "bench/bare/workload.h"

#include <charconv>
#include <stdexcept>
#include <string_view>

namespace {

template<typename Number>
bool assign(std::string_view text, Number& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size();
}

bool assignByName(std::string_view name, std::string_view text, Workload& workload)
{
    if (name == "brokers")
        return assign(text, workload.brokers);
    if (name == "publications")
        return assign(text, workload.publications);
    if (name == "subscriptions")
        return assign(text, workload.subscriptions);
    if (name == "interval")
        return assign(text, workload.interval);
    if (name == "qos")
        return assign(text, workload.qos);
    if (name == "json")
        return assign(text, workload.json);
    if (name == "size")
        return assign(text, workload.size);
    if (name == "spacing")
        return assign(text, workload.spacing);
    if (name == "port")
        return assign(text, workload.port);
    if (name == "loop")
        return assign(text, workload.loop);
    if (name == "general")
        return assign(text, workload.generalAddress);
    if (name == "statistics")
        return assign(text, workload.statisticsAddress);
    if (name == "records")
        return assign(text, workload.recordsAddress);
    if (name == "data")
        return assign(text, workload.dataAddress);
    if (name == "filters") {
        workload.filters = text;
        return true;
    }
    return false;
}

} // namespace

Workload parseWorkload(int argc, char** argv)
{
    Workload workload;
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        const auto equals = word.find('=');
        if (equals == std::string_view::npos ||
            !assignByName(word.substr(0, equals), word.substr(equals + 1), workload))
            throw std::invalid_argument("not a known name=value: " + std::string(word));
    }
    if (workload.brokers < 1)
        throw std::invalid_argument("brokers must be at least 1");
    if (workload.loop != 0 && workload.publications < 1)
        throw std::invalid_argument("a loop needs a publication");
    if (workload.size < 0 || workload.size > LargestPayload)
        throw std::invalid_argument("size must be 0 to " + std::to_string(LargestPayload));
    return workload;
}
