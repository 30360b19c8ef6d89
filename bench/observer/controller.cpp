#include "bench/observer/controller.h"

#include "MQTTClientManager/Records/requestrecords.h"

#include <fcntl.h>
#include <mqueue.h>

#include <cerrno>
#include <fstream>
#include <system_error>

namespace {

constexpr unsigned FirstLinkStateAddress = 44;
constexpr int NotStarted = -1; // no ProcessStatus

void createRequestQueue()
{
    mq_attr attributes{};
    attributes.mq_maxmsg = 10;
    attributes.mq_msgsize = RequestRecordSize;
    const mqd_t queue = mq_open(RequestQueueName, O_RDWR | O_CREAT, 0666, &attributes);
    if (queue < 0)
        throw std::system_error(errno, std::generic_category(), "create the request queue");
    mq_close(queue);
}

void fillTags(unsigned address, const std::string& dataFile)
{
    std::ifstream file(dataFile, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + dataFile);
    for (char byte = 0; file.get(byte); ++address)
        writeRecord(address, byte);
}

} // namespace

std::string readHexadecimal(unsigned address, unsigned size)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned i = 0; i < size; ++i) {
        const auto byte = readRecord<unsigned char>(address + i);
        text += digits[byte / 16];
        text += digits[byte % 16];
    }
    return text;
}

void prepareController(const Addresses& addresses, const std::string& dataFile)
{
    TagMemory::Open();
    createRequestQueue();
    const unsigned char linkUp = 1;
    writeRecord(FirstLinkStateAddress, linkUp);
    writeRecord(addresses.general, MQTTGeneralStruct{NotStarted, 0, 0, 0, 0});
    writeRecord(addresses.statistics, MQTTStatisticsStruct{});
    fillTags(addresses.data, dataFile);
}
