#include "explain/codeexplanations.h"

#include "failure.h"
#include "nearestname.h"

#include "Records/statuscodes.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>

namespace plcctl {

namespace {

constexpr CodePlace Process{"process", "process status in the general record"};
constexpr CodePlace Request{"request", "status byte of a request"};
constexpr CodePlace Broker{"broker", "last result in a broker's status block"};
constexpr CodePlace Subscription{"subscription", "last result in a subscription's status record"};
constexpr CodePlace Publication{"publication", "result of a publication, in the log"};
constexpr CodePlace Library{
    "library",
    "client library's own code: last result of a broker or subscription, result of a publication in the log"};
constexpr CodePlace Exit{"exit", "exit status of plcctl"};

constexpr std::array Places{&Process, &Request, &Broker, &Subscription, &Publication, &Library, &Exit};

struct Advice
{
    const CodePlace* place;
    int code;
    std::string_view text;
};

constexpr std::array AllAdvice{
    Advice{&Process, PS_STARTING,
           "wait: connecting takes up to 15 s for each broker that doesn't answer; the log tells what it is doing"},
    Advice{&Process, PS_PAUSED, "send a start request, then connect and subscribe-all: plcctl request start"},
    Advice{&Process, PS_FAILED,
           "look for 'creation done with' in the log of a start with -verbose true; check the "
           "broker's IPOrURL, Port and ClientID"},
    Advice{&Process, PS_TIME_NOT_SET, "set the device's clock: certificates and tokens are judged by it"},

    Advice{&Request, SC_AC_IN_PROGRESS, "wait; a connect may take 15 s, a subscribe-all 10 s for each subscription"},
    Advice{&Request, SC_AC_ERROR_WRITE_BACK_FAILED,
           "make the file in /VEL/UserApps/Config/MQTT writable for the service's user, look for a full disk, and see "
           "that the file is well-formed"},
    Advice{&Request, SC_AC_ERROR_INVALID_ID, "compare the ID in the request with the file as it was at the last start"},
    Advice{&Request, SC_AC_ERROR_GET_CFG_FAILED, "give an address at which the whole record lies in tag memory"},
    Advice{&Request, SC_AC_ERROR_NOT_PAUSED, "pause first: plcctl request pause"},
    Advice{&Request, SC_AC_ERROR_ALREADY_PAUSED, "nothing; start when you are done: plcctl request start"},
    Advice{&Request, SC_AC_ERROR_PAUSED, "start first: plcctl request start"},
    Advice{&Request, SC_AC_ERROR_NOT_PERIODIC,
           "only publications with a period can be switched; send this one: plcctl request send"},
    Advice{&Request, SC_AC_ERROR_NOT_APERIODIC,
           "only publications with PeriodicInterval -1 are sent by request; switch this one: plcctl request "
           "publish-state"},
    Advice{&Request, SC_AC_ERROR_PARSE_FAILED,
           "the service stays paused: read the error line in the log, mend the file and send start again"},
    Advice{&Request, SC_AC_ERROR_BROKER_FAILED,
           "look at the broker's last result with plcctl status, then: plcctl diagnose BROKER"},
    Advice{&Request, SC_AC_ERROR_SUBSCRIPTION_FAILED,
           "look at the last result of each subscription with plcctl status; one that is subscribed already counts as "
           "failed"},
    Advice{&Request, SC_AC_ERROR_DATA_BIG_THAN_BUFF,
           "look whether the broker is connected and the payload has at most 5000 bytes: plcctl convert --publication "
           "NAME"},
    Advice{&Request, SC_AC_ERROR_CHANGE_STATE_FAILED,
           "look for an error line about too many periodic publications; the first 300 are scheduled"},
    Advice{&Request, SC_AC_ERROR_CLIENT_CREATE_FAILED,
           "the service stays paused: check the broker's IPOrURL, Port and ClientID, and that /tmp can be written"},
    Advice{&Request, SC_AC_ERROR_SYSTEM_TIME, "set the device's clock"},

    Advice{
        &Broker, CB_CONNECT_REFUSED,
        "with 'connected' 1 nothing is wrong; with 0 plug the cable in, or look at the link bytes: plcctl link show"},
    Advice{&Broker, CB_NOT_CONNECTED, "nothing, unless a connection was expected: plcctl diagnose BROKER"},
    Advice{&Broker, CB_CONNECTION_LOST,
           "wait for ConnectionInterval seconds; if it comes back again and again, look for a second client with the "
           "same ClientID"},
    Advice{&Broker, 1, "the broker wants another version of MQTT than 3.1.1 and 3.1"},
    Advice{&Broker, 2, "change ClientID: the broker takes only certain ones, or no empty one"},
    Advice{&Broker, 3, "look at the broker: it is overloaded or shutting down"},
    Advice{&Broker, 4, "check UserName and Password; at encryption level 5 the token, see plcctl diagnose BROKER"},
    Advice{
        &Broker, 5,
        "check the user's rights at the broker, and that there is a user name at all; at encryption level 5 the token "
        "and the device's clock"},

    Advice{&Publication, PSC_ERROR_NOT_PUBLISHED, "connect the broker; PayloadFormat has to be 0, 1, 2 or 3"},
    Advice{&Publication, PSC_ERROR_DATA_BIG_THAN_BUFF, "send fewer members or shorter texts in one publication"},
    Advice{&Publication, PSC_ERROR_SCRIPT_FAILED,
           "run the script by hand as the service's user; it has to end within 30 s and print 0 or 1"},

    Advice{&Subscription, SSC_ERROR_NOT_CONNECTED, "connect the broker, then send subscribe-all"},
    Advice{&Subscription, SSC_ERROR_INVALID_JSON,
           "see what the sender sends: plcctl convert --subscription NAME; the code stays until the next subscribe"},
    Advice{&Subscription, SSC_ERROR_NOT_SUBSCRIBED, "nothing"},
    Advice{&Subscription, SSC_ERROR_ALREADY_SUBSCRIBED, "nothing: the subscription is in force"},
    Advice{&Subscription, SSC_ERROR_CONNECTION_LOST,
           "with CleanSession 1, send subscribe-all once the broker is connected again: plcctl request subscribe-all "
           "BROKER"},
    Advice{&Subscription, -128,
           "the broker refuses this filter to this user: check its access rules and the filter's spelling; the record "
           "has the byte 0x80"},
    Advice{&Subscription, 128, "as -128, which is the same byte"},

    Advice{&Library, -1,
           "plcctl diagnose BROKER says where it stops: name, TCP, TLS or MQTT; for a subscribe, the broker didn't "
           "answer within 10 s"},
    Advice{&Library, -2, "make /tmp/MQTT_PERSISTENCE writable for the service's user, and look for a full disk"},
    Advice{&Library, -3, "connect the broker; the connection broke during the call"},
    Advice{&Library, -4,
           "look at the broker: it takes messages of QoS 1 or 2 and doesn't acknowledge; disconnect and connect it"},
    Advice{&Library, -5, "mend the topic, the client ID or the user name in the file: it is no UTF-8"},
    Advice{&Library, -6, "report it: the service hands all options over"},
    Advice{&Library, -7, "shorten the topic"},
    Advice{&Library, -8, "look which client library is installed: it is not the one that the service was built for"},
    Advice{&Library, -9, "set QOS to 0, 1 or 2"},
    Advice{&Library, -10, "install the client library with TLS, libpaho-mqtt3cs"},
    Advice{&Library, -14, "check IPOrURL: it takes an address or a name, without tcp:// in front"},
    Advice{&Library, -17, "set LastWillTopic, or LastWillAddr to -1 for no will"},
};

constexpr std::array ExitCodes{
    CodeExplanation{&Exit, 0, "", "done", ""},
    CodeExplanation{&Exit, 1, "", "the operation failed", "the message on standard error says why"},
    CodeExplanation{&Exit, 2, "", "the arguments are wrong, nothing was touched", "plcctl COMMAND --help"},
    CodeExplanation{&Exit, 3, "", "nothing to read, or only a part of it could be read",
                    "start the service, or name the configuration with --config DIR"},
    CodeExplanation{&Exit, 4, "", "a request got no final answer in time",
                    "look whether the service runs, and at the queue: plcctl queue show"},
    CodeExplanation{&Exit, 5, "", "a request was not sent: the queue is missing or full",
                    "plcctl queue create, then start the service again; a full queue has no reader"},
};
constexpr int FirstRequestExit = static_cast<int>(ExitCode::RequestBase) + 1;
constexpr int LastRequestExit = FirstRequestExit + 127;

constexpr int LowestByte = -128; // of a signed one
constexpr int HighestByte = 255;

std::string_view adviceFor(const CodePlace& place, int code)
{
    const auto* const found = std::find_if(AllAdvice.begin(), AllAdvice.end(), [&](const Advice& advice) {
        return advice.place == &place && advice.code == code;
    });
    return found == AllAdvice.end() ? std::string_view() : found->text;
}

bool isUnknown(const CodeText& text)
{
    return std::string_view(text.text) == "unknown code";
}

// A code that every place passes through, and none calls by a name.
bool isOfLibrary(int code)
{
    const CodeText text = describeCode(CodeDomain::Publication, code);
    return !isUnknown(text) && *text.name == '\0';
}

void appendDomain(std::vector<CodeExplanation>& all, const CodePlace& place, CodeDomain domain)
{
    const auto append = [&](int code) {
        const CodeText text = describeCode(domain, code);
        const bool isHere = &place == &Library ? isOfLibrary(code) : *text.name != '\0' || !isOfLibrary(code);
        if (isHere && !isUnknown(text))
            all.push_back({&place, code, text.name, text.text, adviceFor(place, code)});
    };
    for (int code = 0; code <= HighestByte; ++code)
        append(code);
    for (int code = -1; code >= LowestByte; --code)
        append(code);
}

std::vector<CodeExplanation> collectExplanations()
{
    std::vector<CodeExplanation> all;
    appendDomain(all, Process, CodeDomain::Process);
    appendDomain(all, Request, CodeDomain::RequestStatus);
    appendDomain(all, Broker, CodeDomain::Broker);
    appendDomain(all, Subscription, CodeDomain::Subscription);
    appendDomain(all, Publication, CodeDomain::Publication);
    appendDomain(all, Library, CodeDomain::Publication);
    all.insert(all.end(), ExitCodes.begin(), ExitCodes.end());
    return all;
}

// 101 to 228 carry the answer of a request.
void appendRequestExit(std::vector<CodeExplanation>& found, int status)
{
    if (status < FirstRequestExit || status > LastRequestExit)
        return;
    const int answer = static_cast<int>(ExitCode::RequestBase) - status;
    const CodeText text = describeCode(CodeDomain::RequestStatus, answer);
    found.push_back({&Exit, status, text.name, text.text, adviceFor(Request, answer)});
}

template<typename Matches>
std::vector<CodeExplanation> select(Matches matches)
{
    std::vector<CodeExplanation> found;
    std::copy_if(allExplanations().begin(), allExplanations().end(), std::back_inserter(found), matches);
    return found;
}

} // namespace

const std::vector<CodeExplanation>& allExplanations()
{
    static const std::vector<CodeExplanation> all = collectExplanations();
    return all;
}

std::vector<CodePlace> codePlaces()
{
    std::vector<CodePlace> places;
    places.reserve(Places.size());
    for (const CodePlace* place : Places)
        places.push_back(*place);
    return places;
}

std::optional<int> parseCode(std::string_view text)
{
    const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (isHexadecimal)
        text.remove_prefix(2);
    if (isHexadecimal && text.starts_with('-'))
        return std::nullopt;
    int code = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), code, isHexadecimal ? 16 : 10);
    const bool isWhole = error == std::errc{} && stop == text.data() + text.size();
    return isWhole ? std::optional(code) : std::nullopt;
}

std::vector<CodeExplanation> explanationsOf(int code)
{
    const bool isByte = code > std::numeric_limits<std::int8_t>::max() && code <= HighestByte;
    std::vector<CodeExplanation> found = select([&](const CodeExplanation& each) {
        return each.code == code || (isByte && each.code == code - (HighestByte + 1));
    });
    appendRequestExit(found, code);
    return found;
}

std::vector<CodeExplanation> explanationsOf(std::string_view name)
{
    if (name.empty())
        return {};
    return select([&](const CodeExplanation& each) { return lowered(each.name) == lowered(name); });
}

} // namespace plcctl
