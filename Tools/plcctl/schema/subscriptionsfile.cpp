#include "filetables.h"
#include "sharedattributes.h"

namespace plcctl::schema {

namespace {

constexpr std::int64_t LargestReceived = 16 << 20; // bytes of a tag that messages fill

constexpr Choice Formats[] = {
    {"0", "raw", "the message's bytes as they come"},
    {"1", "JSON", "JSON text, converted to the tag's type"},
    {"2", "Protobuf", "nothing is written to the tag; the arrival is recorded"},
    {"3", "triggered operation", "nothing is written to the tag; the arrival is recorded"},
};

constexpr Attribute SubscriptionAttributes[] = {
    {
        .name = "ID",
        .form = Form::Signed,
        .whenMissing = "0",
        .required = true,
        .least = 0,
        .most = LargestId,
        .meaning = "Number by which requests name the subscription; no two have the same",
        .mistake =
            "Of two subscriptions with one ID, requests reach the first alone. Requests can't name an ID outside "
            "0 to 65535",
        .unique = true,
    },
    {
        .name = "Name",
        .form = Form::Text,
        .whenMissing = "",
        .meaning = "Name for people, in log lines and in plcctl",
        .mistake = "Any text is taken; one that two subscriptions have can't be used in plcctl",
    },
    {
        .name = "Topic",
        .form = Form::Topic,
        .whenMissing = "",
        .required = true,
        .fieldSize = 512,
        .meaning = "Topic, or filter with the wildcards + for one level and # for all that follow; use one of the two, "
                   "not both",
        .mistake = "Brokers refuse an empty filter and one that breaks the rules of wildcards, some by ending the "
                   "connection. A + ahead of a # is no wildcard, and nothing arrives",
        // Wildcards stand alone in their level; a + ahead of a # matches nothing here.
        .pattern = R"(([^#+]*/)?#|([^#+/]*|\+)(/([^#+/]*|\+))*)",
    },
    {
        .name = "QOS",
        .form = Form::Signed,
        .whenMissing = "0",
        .least = 0,
        .most = 2,
        .meaning = "Highest quality of service with which the broker delivers",
        .mistake =
            "A text that is no number is 0. Any other number than 0, 1 and 2 makes each subscribing fail with -9",
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
        .meaning = "Position of the tag that messages are written to",
        .mistake = "A text that is no number, or none at all, is position 0: messages overwrite whatever lies there. "
                   "Outside tag memory nothing is written",
    },
    BrokerOfCaller,
    {
        .name = "Ent",
        .form = Form::Signed,
        .whenMissing = "0",
        .least = 0,
        .most = LargestReceived,
        .meaning = "0 for one value, else the number of elements of an array; plays no part for texts and structs",
        .mistake = "A text that is no number is 0. A negative number is no data",
    },
    {
        .name = "PayloadFormat",
        .form = Form::Signed,
        .whenMissing = "0",
        .least = 0,
        .most = 3,
        .meaning = "What a message is, and how it becomes the tag's bytes",
        .mistake = "A text that is no number is 0. With any other number than 0 and 1, nothing is written to the tag",
        .choices = Formats,
        .onlyChoices = true,
    },
    DataTypeOfCaller,
    {
        .name = "IsBuffered",
        .form = Form::Flag,
        .whenMissing = "0",
        .least = 0,
        .most = 1,
        .meaning = "1 keeps up to 15 messages in a queue and hands over one each time that the application has cleared "
                   "the received bit; 0 writes each message at once over the one before",
        .mistake = "A text that is no number, also true, is 0. Any number but 0 is 1",
        .choices = FlagChoices,
        .onlyChoices = true,
    },
    {
        .name = "SubscribeAtBoot",
        .form = Form::Flag,
        .whenMissing = "0",
        .least = 0,
        .most = 1,
        .meaning = "1 subscribes when the service starts, if the broker was reached then; 0 waits for a request",
        .mistake = "A text that is no number, also true, is 0. Any number but 0 is 1",
        .choices = FlagChoices,
        .onlyChoices = true,
    },
    {
        .name = "SubAddr",
        .form = Form::Address,
        .whenMissing = "0",
        .required = true,
        .least = 0,
        .most = LargestUnsigned,
        .meaning = "Position of the subscription's status record, 524 bytes",
        .mistake = "A text that is no number, or none at all, is position 0: the record is written over whatever lies "
                   "there",
        .unique = true,
    },
};

constexpr Attribute TopAttributes[] = {Version};

constexpr Element Entries[] = {
    {.name = "SubscriptionConf",
     .attributes = SubscriptionAttributes,
     .children = {&DataMembers, 1},
     .repeated = true,
     .meaning = "One subscription. After the first one, an element of any name is read as a subscription"},
};

constexpr Element Lists[] = {
    {.name = "Subscriptions",
     .children = Entries,
     .required = true,
     .meaning = "The subscriptions, none at all included"},
};

} // namespace

constinit const ConfigurationFile SubscriptionsFile{
    .name = "Subscriptions.xml",
    .top = {.name = "SubscriptionsConf",
            .attributes = TopAttributes,
            .children = Lists,
            .required = true,
            .meaning = "Top element. With any other top element there is no subscription"},
    .meaning = "What the service subscribes to, and the tags that messages are written to",
};

} // namespace plcctl::schema
