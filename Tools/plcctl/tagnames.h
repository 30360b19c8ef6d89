#pragma once

#include "deviceconfig.h"

#include <cstdint>
#include <string>
#include <vector>

namespace plcctl {

// What the tags of a device are called, by their positions.
class TagNames
{
public:
    explicit TagNames(const DeviceConfig& config);

    // The names of all that these bytes touch, separated by ", "; empty where nothing is known. Bytes inside one field
    // of a subscription's record are named by that field as well.
    [[nodiscard]] std::string describe(std::uint64_t position, std::uint64_t size) const;

    // The first position from `position` on where so many bytes touch nothing that has a name.
    [[nodiscard]] std::uint64_t firstUnnamed(std::uint64_t position, std::uint64_t size) const;

    // One tag more.
    void add(std::uint64_t position, std::uint64_t size, std::string name);

private:
    struct Area
    {
        std::uint64_t begin;
        std::uint64_t end;
        std::string name;
        bool isSubscriptionRecord = false;
    };

    [[nodiscard]] static bool touches(const Area& area, std::uint64_t position, std::uint64_t size);

    std::vector<Area> m_areas;
};

} // namespace plcctl
