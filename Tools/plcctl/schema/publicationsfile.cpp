#include "filetables.h"
#include "sharedattributes.h"

namespace plcctl::schema {

namespace {

constexpr Choice Formats[] = {
    {"0", "raw", "the tag's bytes as they are, texts with their terminator and what lies behind it"},
    {"1", "JSON", "the value as JSON text"},
    {"2", "Protobuf", "a message that a script makes from the file that the tag names"},
    {"3", "triggered operation", "a script runs with the tag's text as arguments, and nothing is published"},
};

constexpr Choice Periods[] = {
    {"-1", "", "published on request only"},
};

constexpr Choice AcknowledgementAddresses[] = {
    {"-1", "", "none"},
};

constexpr Attribute PublicationAttributes[] = {
    {
        .name = "ID",
        .form = Form::Signed,
        .whenMissing = "0",
        .required = true,
        .least = 0,
        .most = LargestId,
        .meaning = "Number by which requests name the publication; no two have the same",
        .mistake =
            "Of two publications with one ID, requests reach the first alone. Requests can't name an ID outside 0 "
            "to 65535",
        .unique = true,
    },
    {
        .name = "Name",
        .form = Form::Text,
        .whenMissing = "",
        .meaning = "Name for people, in log lines and in plcctl",
        .mistake = "Any text is taken; one that two publications have can't be used in plcctl",
    },
    {
        .name = "Topic",
        .form = Form::Topic,
        .whenMissing = "",
        .required = true,
        .fieldSize = 512,
        .meaning = "Topic that the messages go to, without wildcards",
        .mistake = "Brokers end the connection when they get a message to an empty topic or to one with + or #",
        .pattern = "[^#+]*",
    },
    {
        .name = "QOS",
        .form = Form::Signed,
        .whenMissing = "0",
        .least = 0,
        .most = 2,
        .meaning = "Quality of service",
        .mistake = "A text that is no number is 0. Any other number than 0, 1 and 2 makes each publishing fail with -9",
        .choices = QualityChoices,
        .onlyChoices = true,
    },
    PayloadEncryption,
    {
        .name = "DataAddr",
        .form = Form::Address,
        .whenMissing = "0",
        .required = true,
        .least = 0,
        .most = LargestUnsigned,
        .meaning = "Position of the tag that is published",
        .mistake = "A text that is no number, or none at all, is position 0: whatever lies there is published. Outside "
                   "tag memory the data is all zero",
    },
    BrokerOfCaller,
    {
        .name = "Ent",
        .form = Form::Signed,
        .whenMissing = "0",
        .least = 0,
        .most = LargestTag,
        .meaning = "0 for one value, else the number of elements of an array; plays no part for texts and structs",
        .mistake = "A text that is no number is 0. A negative number is no data",
    },
    {
        .name = "PayloadFormat",
        .form = Form::Signed,
        .whenMissing = "0",
        .least = 0,
        .most = 3,
        .meaning = "What becomes of the tag's bytes. No message is longer than 5000 bytes",
        .mistake = "A text that is no number is 0. Any other number than 0 to 3 makes each publishing fail with -11",
        .choices = Formats,
        .onlyChoices = true,
    },
    DataTypeOfCaller,
    {
        .name = "RetainFlag",
        .form = Form::Flag,
        .whenMissing = "0",
        .least = 0,
        .most = 1,
        .meaning = "1 asks the broker to keep the last message for those who subscribe later",
        .mistake = "A text that is no number, also true, is 0. Any number but 0 is 1",
        .choices = FlagChoices,
        .onlyChoices = true,
    },
    {
        .name = "PeriodicInterval",
        .form = Form::Signed,
        .whenMissing = "0",
        .required = true,
        .least = -1,
        .most = LargestSigned,
        .unit = "ms",
        .meaning = "Time between publications; -1 for a publication on request only. At most 300 publications have a "
                   "period",
        .mistake =
            "A text that is no number, or none at all, is 0, and 0 publishes as often as the processor can. Below "
            "-1, nothing is ever published. What exceeds 300 publications with a period is named in the log and "
            "never goes out",
        .choices = Periods,
    },
    {
        .name = "BrokerReceivedAddr",
        .form = Form::Address,
        .whenMissing = "0",
        .required = true,
        .least = -1,
        .most = LargestSigned,
        .meaning =
            "Position of one byte that the service sets to 1 when the broker has acknowledged a message (quality "
            "of service 1 and 2); -1 for none",
        .mistake = "A text that is no number, or none at all, is position 0: with quality of service 1 or 2, that byte "
                   "is overwritten",
        .choices = AcknowledgementAddresses,
    },
};

constexpr Attribute TopAttributes[] = {Version};

constexpr Element Entries[] = {
    {.name = "PublicationConf",
     .attributes = PublicationAttributes,
     .children = {&DataMembers, 1},
     .repeated = true,
     .meaning = "One publication. After the first one, an element of any name is read as a publication"},
};

constexpr Element Lists[] = {
    {.name = "Publications",
     .children = Entries,
     .required = true,
     .meaning = "The publications, none at all included"},
};

} // namespace

constinit const ConfigurationFile PublicationsFile{
    .name = "Publications.xml",
    .top = {.name = "PublicationsConf",
            .attributes = TopAttributes,
            .children = Lists,
            .required = true,
            .meaning = "Top element. With any other top element there is no publication"},
    .meaning = "What the service publishes",
};

} // namespace plcctl::schema
