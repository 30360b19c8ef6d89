#include "configurationfiles.h"

#include "filetables.h"

#include <algorithm>
#include <array>
#include <ranges>

namespace plcctl::schema {

namespace {

template<typename Entry>
const Entry* findNamed(std::span<const Entry> entries, std::string_view name)
{
    const auto found = std::ranges::find(entries, name, &Entry::name);
    return found == entries.end() ? nullptr : &*found;
}

} // namespace

std::span<const ConfigurationFile> configurationFiles()
{
    static const std::array files{GeneralFile, BrokersFile, SubscriptionsFile, PublicationsFile};
    return files;
}

const ConfigurationFile* findFile(std::string_view name)
{
    return findNamed(configurationFiles(), name);
}

const Attribute* findAttribute(const Element& element, std::string_view name)
{
    return findNamed(element.attributes, name);
}

const Element* findChild(const Element& element, std::string_view name)
{
    return findNamed(element.children, name);
}

} // namespace plcctl::schema
