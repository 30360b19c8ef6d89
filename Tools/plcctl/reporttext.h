#pragma once

#include "output.h"
#include "tagaccess.h"

#include "Records/statuscodes.h"

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

namespace plcctl {

// What the lines and objects of a status report are made of.

// The record at this address; nothing where there is no address or the record would not lie whole in tag memory.
template<typename Record>
std::optional<Record> readRecord(const TagReader& reader, std::optional<std::uint32_t> address)
{
    if (!address || bytesFrom(*address) < sizeof(Record))
        return std::nullopt;
    const auto bytes = reader.read(*address, sizeof(Record));
    Record record;
    std::memcpy(&record, bytes.data(), sizeof record);
    return record;
}

// "general         at 1024: "; the label alone where there is no address.
std::string lineHead(std::string label, std::optional<std::uint32_t> address);

// Why there is no record to show.
std::string absence(std::optional<std::uint32_t> address);

// "PS_RUNNING (1), running"; a code without a name is its number alone.
std::string describe(CodeDomain domain, int code);

// A flag byte that is neither 0 nor 1 shows with its value: no state of the service's own has it.
std::string flag(std::uint8_t byte, const char* yes, const char* no);

Json codeJson(CodeDomain domain, int code);

} // namespace plcctl
