#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace plcctl {

// What the tools need to know of the device's configuration files. Addresses are positions in tag memory.

// What stands in the file, by name, as it stands there.
using Attributes = std::map<std::string, std::string>;

struct BrokerEntry
{
    int id = 0;
    std::string name;
    std::string host;
    std::uint32_t port = 0;
    std::uint32_t statusAddress = 0;
    std::optional<std::uint32_t> willAddress;
    std::uint32_t willSize = 0; // bytes
    Attributes attributes = {};
};

// What the bytes of a tag, or of a struct's member, are.
struct ValueLayout
{
    int type = 0;    // ArgType
    int length = 0;  // characters of a text
    int entries = 0; // elements of an array; 0 for a single value
};

struct MemberEntry
{
    std::string name;
    std::uint32_t offset = 0; // bytes from the beginning of the struct
    ValueLayout value;
};

struct PublicationEntry
{
    int id = 0;
    std::string name;
    std::uint32_t dataAddress = 0;
    std::uint32_t dataSize = 0;                      // bytes
    std::optional<std::uint32_t> acknowledgeAddress; // of one byte
    ValueLayout value = {};
    std::vector<MemberEntry> members = {}; // of a struct
    Attributes attributes = {};
};

struct SubscriptionEntry
{
    int id = 0;
    std::string name;
    std::uint32_t dataAddress = 0;
    std::uint32_t dataSize = 0; // bytes
    std::uint32_t recordAddress = 0;
    bool buffered = false;
    ValueLayout value = {};
    std::vector<MemberEntry> members = {}; // of a struct
    Attributes attributes = {};
};

struct FileProblem
{
    std::string file; // with its directory
    std::string text;
};

struct DeviceConfig
{
    std::optional<std::uint32_t> generalAddress;
    std::optional<std::uint32_t> statisticsAddress;
    std::vector<BrokerEntry> brokers;
    std::vector<PublicationEntry> publications;
    std::vector<SubscriptionEntry> subscriptions;
    std::vector<FileProblem> problems;
};

enum class ConfigScope
{
    StatusRecords, // the files that tell where the status records lie: all but the publications
    AllFiles
};

// Reads what can be read: a broken file gives its entries up to the break and a problem. Values are converted as the
// service does it: a missing or bad number is 0. Nothing is ever written, and no variable in a topic is expanded.
DeviceConfig readDeviceConfig(const std::string& directory, ConfigScope scope);

// The size in bytes that such a value has in tag memory; 0 for a struct and for what the service doesn't know.
std::uint32_t sizeOf(const ValueLayout& value);

} // namespace plcctl
