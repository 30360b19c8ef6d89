#include "filetables.h"
#include "sharedattributes.h"

namespace plcctl::schema {

namespace {

constexpr std::int64_t LongestInterval = LargestSigned / 1000; // seconds that a timer in milliseconds can count

constexpr std::uint8_t atLevels(std::initializer_list<int> levels)
{
    int mask = 0;
    for (const int level : levels)
        mask |= 1 << level;
    return static_cast<std::uint8_t>(mask);
}

constexpr Choice EncryptionLevels[] = {
    {"0", "plain TCP", "everything can be read on the way, the password as well"},
    {"1", "TLS, any certificate", "encrypted, but the broker doesn't prove itself"},
    {"2", "TLS, own authority", "the authority in CAFileName has signed the broker's certificate"},
    {"3", "TLS, system's authorities", "any authority in the system's store has signed the broker's certificate"},
    {"4", "TLS, client certificate", "as 2, and the service shows a certificate of its own"},
    {"5", "TLS, signed token", "as 2, and the service sends a JSON Web Token as password"},
};

constexpr Choice TokenAlgorithms[] = {
    {"RS256", "", "for an RSA key"},
    {"ES256", "", "for a P-256 key"},
};

constexpr Choice WillAddresses[] = {
    {"-1", "", "no will"},
};

constexpr Choice WillTypes[] = {
    {"0", "none", "no tag: a will has an empty message"},
    TagTypes[0],
    TagTypes[1],
    TagTypes[2],
    TagTypes[3],
    TagTypes[4],
    TagTypes[5],
    TagTypes[6],
    TagTypes[7],
    TagTypes[8],
    TagTypes[10],
    TagTypes[11],
};

constexpr Attribute BrokerAttributes[] = {
    {
        .name = "Name",
        .form = Form::Text,
        .whenMissing = "",
        .meaning = "Name for people, in log lines and in plcctl",
        .mistake = "Any text is taken; one that two brokers have can't be used in plcctl",
    },
    {
        .name = "IPOrURL",
        .form = Form::Text,
        .whenMissing = "",
        .required = true,
        .fieldSize = 256,
        .meaning = "The broker's host name or address alone, without a scheme such as mqtt:// and without a port",
        .mistake = "What is no host fails at each attempt to connect. A name that is looked up slowly holds up all "
                   "brokers for as long",
        .pattern = R"([^\s/:]+|\[[0-9A-Fa-f:.]+\])",
    },
    {
        .name = "ClientID",
        .form = Form::Text,
        .whenMissing = "",
        .fieldSize = 464,
        .meaning = "MQTT client identifier; empty or missing, a random one is made at each start, so no session is "
                   "found again. Variables are not expanded",
        .mistake =
            "Two clients of one broker with the same identifier throw each other out again and again. One so long that "
            "identifier, host and port together exceed 255 bytes, the longest name of a file, keeps the service "
            "from starting",
    },
    {
        .name = "EncryptionType",
        .form = Form::Unsigned,
        .whenMissing = "0",
        .least = 0,
        .most = 5,
        .meaning = "Level of encryption; it decides which of the file names below are read",
        .mistake = "A text that is no number is 0, no encryption. A number above 5 is the same as 1",
        .choices = EncryptionLevels,
        .onlyChoices = true,
    },
    {
        .name = "CAFileName",
        .form = Form::FileName,
        .whenMissing = "",
        .required = true,
        .levels = atLevels({2, 4, 5}),
        .meaning = "File with the authority's certificate, PEM",
        .mistake = "A file that is missing or no certificate fails at each attempt to connect",
    },
    {
        .name = "ClientCertificateFileName",
        .form = Form::FileName,
        .whenMissing = "",
        .required = true,
        .levels = atLevels({4}),
        .meaning = "File with the service's own certificate, PEM",
        .mistake = "A file that is missing or no certificate fails at each attempt to connect",
    },
    {
        .name = "ClientKeyFileName",
        .form = Form::FileName,
        .whenMissing = "",
        .required = true,
        .levels = atLevels({4, 5}),
        .meaning = "File with the service's private key, PEM, without a passphrase",
        .mistake = "At level 4 a bad file fails at each attempt to connect; at level 5 there is no good token, and the "
                   "broker refuses",
    },
    {
        .name = "GoogleCloudProjectID",
        .form = Form::Text,
        .whenMissing = "",
        .required = true,
        .levels = atLevels({5}),
        .meaning = "Audience of the token (claim aud)",
        .mistake = "The broker refuses a token that is meant for another audience",
    },
    {
        .name = "JWTAlgorithm",
        .form = Form::Text,
        .whenMissing = "",
        .required = true,
        .levels = atLevels({5}),
        .meaning = "How the token is signed",
        .mistake = "Any other text, also one in small letters, sends a token without a signature",
        .choices = TokenAlgorithms,
        .onlyChoices = true,
    },
    {
        .name = "UserName",
        .form = Form::Text,
        .whenMissing = "",
        .fieldSize = 256,
        .meaning = "User name; empty or missing, none is sent. Not used at level 5",
        .mistake = "The broker refuses the connection",
    },
    {
        .name = "Password",
        .form = Form::Text,
        .whenMissing = "",
        .fieldSize = 512,
        .meaning = "Password, as plain text; empty or missing, none is sent. Not used at level 5",
        .mistake = "The broker refuses the connection",
    },
    {
        .name = "LastWillTopic",
        .form = Form::Topic,
        .whenMissing = "",
        .fieldSize = 512,
        .meaning = "Topic that the broker publishes the will to, with quality of service 0 and not retained; without "
                   "wildcards. Plays no part when there is no will",
        .mistake = "With a will, a topic that is empty or holds + or # makes brokers refuse the connection",
        .pattern = "[^#+]*",
    },
    {
        .name = "Port",
        .form = Form::Unsigned,
        .whenMissing = "0",
        .required = true,
        .least = 1,
        .most = 65535,
        .meaning = "TCP port; commonly 1883 without and 8883 with encryption",
        .mistake = "A text that is no number is 0, and nothing can be connected",
    },
    {
        .name = "KeepAlive",
        .form = Form::Unsigned,
        .whenMissing = "0",
        .required = true,
        .least = 0,
        .most = 65535,
        .unit = "s",
        .meaning = "Longest silence on the connection before either side asks whether the other is there; 0 switches "
                   "that off, and a dead connection may go unnoticed for ever",
        .mistake = "A text that is no number is 0. Only the low 16 bits of a number above 65535 count",
    },
    {
        .name = "ConnectionInterval",
        .form = Form::Unsigned,
        .whenMissing = "0",
        .least = 0,
        .most = LongestInterval,
        .unit = "s",
        .meaning = "Time between attempts to connect, after a lost connection and when the first attempt failed; 0 "
                   "switches retrying off",
        .mistake = "A text that is no number is 0: the broker is not tried again until a request asks for it",
    },
    {
        .name = "LastWillAddr",
        .form = Form::Address,
        .whenMissing = "0",
        .required = true,
        .least = -1,
        .most = LargestSigned,
        .meaning = "Position of the tag with the will's message, which is read at each attempt to connect; -1 for no "
                   "will",
        .mistake = "A text that is no number, or none at all, is position 0: a will that nobody meant",
        .choices = WillAddresses,
    },
    {
        .name = "ID",
        .form = Form::Signed,
        .whenMissing = "0",
        .required = true,
        .least = 0,
        .most = LargestId,
        .meaning = "Number by which publications, subscriptions and requests name the broker; no two have the same",
        .mistake = "Of two brokers with one ID, requests and entries reach the first alone. Requests can't name an ID "
                   "outside 0 to 65535",
        .unique = true,
    },
    {
        .name = "CleanSession",
        .form = Form::Flag,
        .whenMissing = "0",
        .least = 0,
        .most = 1,
        .meaning = "1 begins anew at each connection; 0 asks the broker to keep subscriptions and messages in between",
        .mistake = "A text that is no number, also true, is 0. Any number but 0 is 1",
        .choices = FlagChoices,
        .onlyChoices = true,
    },
    {
        .name = "AutoConnect",
        .form = Form::Flag,
        .whenMissing = "0",
        .least = 0,
        .most = 1,
        .meaning = "1 connects when the service starts; 0 waits for a request",
        .mistake = "A text that is no number, also true, is 0. Any number but 0 is 1",
        .choices = FlagChoices,
        .onlyChoices = true,
    },
    {
        .name = "BrokerAddr",
        .form = Form::Address,
        .whenMissing = "0",
        .required = true,
        .least = 0,
        .most = LargestUnsigned,
        .meaning = "Position of the broker's status block, 4 bytes",
        .mistake = "A text that is no number, or none at all, is position 0: the block is written over whatever lies "
                   "there",
        .unique = true,
    },
    {
        .name = "DataType",
        .form = Form::DataType,
        .whenMissing = "0",
        .least = 0,
        .most = 12,
        .meaning = "Type of the will's tag, and its length in characters: 11_31. Its bytes are the will's message, as "
                   "UTF-8 text up to the first zero byte, so it is best an STR8",
        .mistake = "A type without a size, or a text without a length, gives an empty message",
        .choices = WillTypes,
        .onlyChoices = true,
    },
};

constexpr Attribute TopAttributes[] = {Version};

constexpr Element Entries[] = {
    {.name = "BrokerConf",
     .attributes = BrokerAttributes,
     .repeated = true,
     .meaning = "One broker. After the first one, an element of any name is read as a broker"},
};

constexpr Element Lists[] = {
    {.name = "Brokers",
     .children = Entries,
     .required = true,
     .meaning = "The brokers. Without any the service ends at once"},
};

} // namespace

constinit const ConfigurationFile BrokersFile{
    .name = "Brokers.xml",
    .top = {.name = "BrokersConf",
            .attributes = TopAttributes,
            .children = Lists,
            .required = true,
            .meaning = "Top element. With any other top element there is no broker, and the service ends at once"},
    .meaning = "The MQTT brokers that the service connects to",
};

} // namespace plcctl::schema
