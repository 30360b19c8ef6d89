#pragma once

#include "live/page.h"
#include "live/tables.h"

#include "Records/statuscodes.h"

#include <string>
#include <vector>

// What the tests of the live view look at: two brokers, two publications, two subscriptions, three lines of the log.
namespace livesample {

using namespace plcctl;
using namespace plcctl::live;

inline LiveData data()
{
    LiveData data;
    data.timeNanoseconds = 1'715'000'000'000'000'000;
    data.general = MQTTGeneralStruct{PS_RUNNING, 2, 2, 2, 0};
    data.processId = 4711;
    data.links = {1, 0};
    data.counters[0].value = 120;
    data.counters[0].rate = 4.5;
    data.counters[0].rates = {1, 2, 4};
    data.expectedRate = 4.5;
    data.queue = {"", 3, 10};

    BrokerData plant;
    plant.entry.id = 1;
    plant.entry.name = "plant";
    plant.entry.attributes = {{"Name", "plant"}, {"Password", "secret"}};
    plant.block = BrokerStatusBlock{1, 0, 0, 0};
    BrokerData cloud;
    cloud.entry.id = 2;
    cloud.entry.name = "cloud";
    cloud.block = BrokerStatusBlock{0, 0, CB_CONNECTION_LOST, 0};
    data.brokers = {plant, cloud};

    PublicationData speed;
    speed.entry.id = 10;
    speed.entry.name = "speed";
    speed.broker = "plant";
    speed.periodMilliseconds = 500;
    speed.value = "12.5";
    speed.connected = true;
    PublicationData note;
    note.entry.id = 9;
    note.entry.name = "note";
    note.value = "'hello'";
    note.acknowledgement = 1;
    note.acknowledgementSeconds = 3;
    data.publications = {speed, note};

    SubscriptionData setpoint;
    setpoint.entry.id = 1;
    setpoint.entry.name = "setpoint";
    setpoint.record = SubscriberStatusStruct{};
    setpoint.record->m_Subscribed = 1;
    setpoint.topic = "plant/set/speed";
    setpoint.ageSeconds = 2.5;
    SubscriptionData order;
    order.entry.id = 2;
    order.entry.name = "work order";
    order.entry.buffered = true;
    order.record = SubscriberStatusStruct{};
    order.record->m_SubscriptionStatus = SSC_ERROR_CONNECTION_LOST;
    order.record->m_QueueFull = 1;
    data.subscriptions = {setpoint, order};

    data.log = {{3, {"2024/05/06", "07:08:11.000", Severity::Error, "connect", "b.cpp:2", "it failed"}},
                {2, {"2024/05/06", "07:08:10.000", Severity::Info, "run", "a.cpp:1", "it runs"}},
                {1, {"2024/05/06", "07:08:09.000", Severity::Debug, "run", "a.cpp:1", "a detail"}}};
    return data;
}

inline std::string textOf(const Line& line)
{
    std::string text;
    for (const Span& span : line)
        text += span.text;
    return text;
}

inline std::vector<std::string> screen(const LiveData& data, UiState& state, int width = 80, int height = 24)
{
    std::vector<std::string> lines;
    for (const Line& line : drawPage(data, state, width, height))
        lines.push_back(textOf(line));
    return lines;
}

// Whether one line holds the texts in this order.
inline bool hasLine(const std::vector<std::string>& lines, const std::vector<std::string>& texts)
{
    for (const std::string& line : lines) {
        std::size_t at = 0;
        for (const std::string& text : texts) {
            at = at == std::string::npos ? at : line.find(text, at);
            at = at == std::string::npos ? at : at + text.size();
        }
        if (at != std::string::npos)
            return true;
    }
    return false;
}

inline UiState showing(View view)
{
    UiState state;
    state.view = view;
    return state;
}

} // namespace livesample
