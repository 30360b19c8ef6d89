#include "diagnose/mqttprobe.h"

#include "explain/codeexplanations.h"
#include "output.h"
#include "reporttext.h"

#include <algorithm>
#include <csignal>

namespace plcctl {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t ConnectPacket = 0x10;
constexpr std::uint8_t ConnectAnswer = 0x20;
constexpr std::uint8_t Goodbye[] = {0xE0, 0};
constexpr std::size_t AnswerSize = 4;
constexpr std::size_t MostBytesShown = 24;

// Within this time a broker that doesn't want a client it has let in closes the connection.
constexpr auto SecondThoughts = std::chrono::milliseconds(500);
constexpr int GoodbyeMilliseconds = 1000;

void appendText(Bytes& packet, const std::string& text)
{
    packet.push_back(static_cast<std::uint8_t>(text.size() >> 8));
    packet.push_back(static_cast<std::uint8_t>(text.size()));
    packet.insert(packet.end(), text.begin(), text.end());
}

Bytes packetOf(const Connect& connect)
{
    Bytes body;
    appendText(body, "MQTT");
    body.push_back(4); // 3.1.1
    constexpr unsigned CleanSession = 0x02;
    const unsigned flags = CleanSession | (connect.hasUser ? 0x80U : 0U) | (connect.hasPassword ? 0x40U : 0U);
    body.push_back(static_cast<std::uint8_t>(flags));
    body.push_back(static_cast<std::uint8_t>(connect.keepAlive >> 8));
    body.push_back(static_cast<std::uint8_t>(connect.keepAlive));
    appendText(body, connect.clientId);
    if (connect.hasUser)
        appendText(body, connect.user);
    if (connect.hasPassword)
        appendText(body, connect.password);

    Bytes packet{ConnectPacket};
    for (std::size_t left = body.size(); left > 0; left >>= 7)
        packet.push_back(static_cast<std::uint8_t>((left & 0x7F) | (left > 0x7F ? 0x80 : 0)));
    packet.insert(packet.end(), body.begin(), body.end());
    return packet;
}

PlainAnswer answerIn(const Bytes& bytes)
{
    if (bytes.size() >= AnswerSize && bytes[0] == ConnectAnswer && bytes[1] == 2)
        return {true, bytes[3], "the broker answered " + describe(CodeDomain::Broker, bytes[3]), ""};
    const std::span<const std::uint8_t> shown(bytes.data(), std::min(bytes.size(), MostBytesShown));
    const bool isTls = bytes[0] == 0x15 || bytes[0] == 0x16;
    return {false, 0,
            "the answer is no MQTT: " + hexBytes(shown) + " '" + asciiBytes(shown) + "'" +
                (bytes.size() > shown.size() ? "..." : ""),
            isTls ? "this port speaks TLS: set EncryptionType to 1 to 5, or Port to the broker's plain port"
                  : "something else than an MQTT broker listens there: check IPOrURL and Port"};
}

Connect connectOf(const std::string& clientId, const MQTTClient_connectOptions& options)
{
    Connect connect;
    connect.clientId = clientId;
    connect.keepAlive = options.keepAliveInterval;
    connect.hasUser = options.username != nullptr;
    connect.hasPassword = options.password != nullptr;
    connect.user = connect.hasUser ? options.username : "";
    connect.password = connect.hasPassword ? options.password : "";
    return connect;
}

// Signals wait while one lives: an end of the process in the middle of a connection would make the broker publish the
// will.
class SignalsWait
{
public:
    SignalsWait()
    {
        sigset_t ending;
        sigemptyset(&ending);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
            sigaddset(&ending, signal);
        pthread_sigmask(SIG_BLOCK, &ending, &m_before);
    }
    ~SignalsWait() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsWait(const SignalsWait&) = delete;
    SignalsWait& operator=(const SignalsWait&) = delete;

private:
    sigset_t m_before{};
};

class Client
{
public:
    Client(const std::string& uri, const std::string& clientId)
    {
        // Nothing is kept: messages that the service has stored are not for this client to send.
        m_created = MQTTClient_create(&m_client, uri.c_str(), clientId.c_str(), MQTTCLIENT_PERSISTENCE_NONE, nullptr);
    }
    ~Client()
    {
        if (m_created == MQTTCLIENT_SUCCESS)
            MQTTClient_destroy(&m_client);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    int connect(MQTTClient_connectOptions& options)
    {
        return m_created == MQTTCLIENT_SUCCESS ? MQTTClient_connect(m_client, &options) : m_created;
    }

    // False when the broker closed the connection meanwhile.
    bool stays()
    {
        const auto end = std::chrono::steady_clock::now() + SecondThoughts;
        while (MQTTClient_isConnected(m_client) && std::chrono::steady_clock::now() < end)
            MQTTClient_yield(); // sleeps, and takes what comes
        return MQTTClient_isConnected(m_client) != 0;
    }

    void disconnect() { MQTTClient_disconnect(m_client, GoodbyeMilliseconds); }

private:
    MQTTClient m_client = nullptr;
    int m_created;
};

// A refusal, in words and with what to do.
void explainCode(Step& step, int code)
{
    std::string advice;
    for (const CodeExplanation& explanation : explanationsOf(code)) {
        if (explanation.place->key == "broker" || explanation.place->key == "library")
            advice = explanation.advice;
    }
    step.fail(describe(CodeDomain::Broker, code), advice);
}

void askWhy(Step& step, const Connect& connect, Patience patience,
            const std::function<std::optional<Channel>()>& reconnect)
{
    step.fail("the connection failed (-1)", "");
    auto channel = reconnect();
    if (!channel) {
        step.advice.emplace_back("the broker takes no further connection: look into its log");
        return;
    }
    const PlainAnswer answer = askForConnection(*channel, connect, std::chrono::steady_clock::now() + patience);
    if (!answer.isMqtt) {
        step.seen = answer.seen;
        step.advice.push_back(answer.advice);
        return;
    }
    if (answer.code != 0)
        return explainCode(step, answer.code);
    step.details.emplace_back("asked by hand, the broker accepts");
    step.advice.emplace_back("the broker is slow, or not always there: try again with a longer --timeout, and look "
                             "into the broker's log");
}

bool worksWithoutWill(const std::string& uri, const std::string& clientId, MQTTClient_connectOptions options)
{
    options.will = nullptr;
    Client client(uri, clientId);
    if (client.connect(options) != MQTTCLIENT_SUCCESS)
        return false;
    client.disconnect();
    return true;
}

void explainRefusedWill(Step& step, int result)
{
    step.fail(result == MQTTCLIENT_FAILURE ? "the connection failed (-1)" : describe(CodeDomain::Broker, result),
              "the broker refuses the will: check LastWillTopic, which has to be a topic without + and #, the size of "
              "the will, and the rights of this user to publish there");
    step.details.emplace_back("without the will the broker accepts");
}

} // namespace

PlainAnswer askForConnection(Channel& channel, const Connect& connect, Deadline deadline)
{
    if (!channel.send(packetOf(connect), deadline))
        return {false, 0, "the connection broke as soon as something was sent",
                "look into the broker's log, and whether something in between cuts connections"};
    const Reception reception = channel.receive(deadline);
    switch (reception.end) {
    case Reception::End::Data:
        break;
    case Reception::End::TimedOut:
        return {false, 0, "the broker accepts the connection and says nothing",
                "look whether the broker hangs, and whether this port is a broker's"};
    case Reception::End::Closed:
    case Reception::End::Broken:
        return {false, 0, "the broker closes the connection without an answer",
                "look into its log; commonly the client ID, the user name or the size of a packet isn't to its liking, "
                "or the port wants TLS"};
    }
    PlainAnswer answer = answerIn(reception.bytes);
    if (answer.isMqtt && answer.code == 0)
        channel.send(Goodbye, deadline);
    return answer;
}

void tryMqtt(Step& step, const std::string& uri, const std::string& clientId, MQTTClient_connectOptions& options,
             Patience patience, const std::function<std::optional<Channel>()>& reconnect)
{
    const SignalsWait wait;
    Client client(uri, clientId);
    const int result = client.connect(options);
    if (result != MQTTCLIENT_SUCCESS) {
        if (options.will && worksWithoutWill(uri, clientId, options))
            explainRefusedWill(step, result);
        else if (result == MQTTCLIENT_FAILURE)
            askWhy(step, connectOf(clientId, options), patience, reconnect);
        else
            explainCode(step, result);
        return;
    }
    step.seen = std::string("accepted as ") + inQuotes(clientId) + ", MQTT " +
                (options.returned.MQTTVersion == MQTTVERSION_3_1 ? "3.1" : "3.1.1") + ", " +
                (options.returned.sessionPresent != 0 ? "with" : "without") + " a stored session";
    if (options.will)
        step.details.push_back("the will is accepted, topic " + inQuotes(options.will->topicName) +
                               "; it is not sent: the connection ends in order");
    if (!client.stays())
        return step.fail("accepted, and closed again at once",
                         "another client with the same client ID takes the place, or the broker's rules end the "
                         "connection: look into its log");
    client.disconnect();
}

} // namespace plcctl
