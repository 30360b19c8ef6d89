#include "filetables.h"
#include "sharedattributes.h"

namespace plcctl::schema {

namespace {

constexpr Attribute TopAttributes[] = {Version};

constexpr Attribute recordAddress(std::string_view meaning)
{
    return {
        .name = "Addr",
        .form = Form::Address,
        .whenMissing = "0",
        .required = true,
        .least = 0,
        .most = LargestUnsigned,
        .meaning = meaning,
        .mistake = "A text that is no number, or none at all, is position 0: the record is written over whatever lies "
                   "there",
    };
}

constexpr Attribute GeneralAttributes[] = {
    recordAddress("Position of the general record, 12 bytes: process status and numbers of entries")};
constexpr Attribute StatisticsAttributes[] = {
    recordAddress("Position of the statistics record, 16 bytes: messages sent, acknowledged, received and dropped")};

constexpr Element Records[] = {
    {.name = "General",
     .attributes = GeneralAttributes,
     .required = true,
     .meaning = "Where the service shows its state. Without this element it doesn't start"},
    {.name = "Statistics",
     .attributes = StatisticsAttributes,
     .required = true,
     .meaning = "Where the service counts. Without this element it doesn't start"},
};

} // namespace

constinit const ConfigurationFile GeneralFile{
    .name = "MQTTClientConf.xml",
    .top = {.name = "ClientConf",
            .attributes = TopAttributes,
            .children = Records,
            .required = true,
            .meaning = "Top element. With any other top element the service doesn't start"},
    .meaning = "Where in tag memory the service shows its own state and its counters",
};

} // namespace plcctl::schema
