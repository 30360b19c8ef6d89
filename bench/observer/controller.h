#pragma once

#include "MQTTClientManager/Records/generalrecords.h"
#include "Platform/TagMemory/tagmemory.h"

#include <stdexcept>
#include <string>
#include <vector>

// The controller's side of the process under test: tag memory and the request queue.

struct Addresses
{
    unsigned general = 1024;    // process-wide status record
    unsigned statistics = 1536; // statistics record
    unsigned records = 0;       // status record of the first subscription; 0: there is none
    unsigned data = 8192;       // first tag
};

template<typename Record>
Record readRecord(unsigned address)
{
    Record record{};
    TagMemory::Read(sizeof record, address, reinterpret_cast<unsigned char*>(&record));
    return record;
}

template<typename Record>
void writeRecord(unsigned address, const Record& record)
{
    if (TagMemory::Write(sizeof record, address, reinterpret_cast<const unsigned char*>(&record)) != 0)
        throw std::runtime_error("tag memory takes no write at " + std::to_string(address));
}

// `size` bytes of tag memory in hexadecimal digits.
std::string readHexadecimal(unsigned address, unsigned size);

// Puts tag memory and the request queue in the state in which a controller starts the process; the content of
// `dataFile` becomes the tags from `addresses.data` on.
void prepareController(const Addresses& addresses, const std::string& dataFile);
