#include "requestkeys.h"

#include "views.h"

#include <algorithm>

namespace plcctl::live {

namespace {

struct RequestKey
{
    char32_t key;
    View view;
    const char* name;
    RequestOpcode opcode;
    EntityKind kind;
    std::int8_t publishState;
    bool asks; // what it does would disturb a plant that runs
};

constexpr std::array RequestKeys{
    RequestKey{U'c', View::Brokers, "connect", MRO_CONNECT_BROKER, EntityKind::Broker, 0, false},
    RequestKey{U'd', View::Brokers, "disconnect", MRO_DISCONNECT_BROKER, EntityKind::Broker, 0, true},
    RequestKey{U'u', View::Brokers, "subscribe-all", MRO_SUBSCRIBE_ALL, EntityKind::Broker, 0, false},
    RequestKey{U'U', View::Brokers, "unsubscribe-all", MRO_UNSUBSCRIBE_ALL, EntityKind::Broker, 0, true},
    RequestKey{U'u', View::Subscriptions, "subscribe", MRO_SUBSCRIBE_TO_TOPIC, EntityKind::Subscription, 0, false},
    RequestKey{U'U', View::Subscriptions, "unsubscribe", MRO_UNSUBSCRIBE_FROM_TOPIC, EntityKind::Subscription, 0, true},
    RequestKey{U'n', View::Publications, "send", MRO_SEND_APERIODIC, EntityKind::Publication, 0, false},
    RequestKey{U't', View::Publications, "publish-state on", MRO_SET_PUBLISH_STATE, EntityKind::Publication, 1, false},
    RequestKey{U'T', View::Publications, "publish-state off", MRO_SET_PUBLISH_STATE, EntityKind::Publication, 0, true},
};

// "plant" and 1 of the selected row; nothing if there is none.
std::optional<EntityReference> selectedEntity(const LiveData& data, const UiState& state, EntityKind kind)
{
    const Table table = shownTable(data, state);
    const auto row = selectedRow(table, state.current());
    if (!row)
        return std::nullopt;
    const auto refer = [kind, place = table.rows[*row].key](const auto& list) {
        return EntityReference{kind, static_cast<std::uint16_t>(list[place].entry.id), list[place].entry.name};
    };
    switch (kind) {
    case EntityKind::Broker:
        return refer(data.brokers);
    case EntityKind::Publication:
        return refer(data.publications);
    case EntityKind::Subscription:
        return refer(data.subscriptions);
    }
    return std::nullopt;
}

void takeOrAsk(UiState& state, KeyEffect& effect, WantedRequest request, bool asks)
{
    if (asks)
        ask(state, std::move(request));
    else
        effect.send = std::move(request);
}

} // namespace

std::string describe(const WantedRequest& request)
{
    return request.name + (request.entity ? " " + plcctl::describe(*request.entity) : " the service");
}

void ask(UiState& state, WantedRequest request)
{
    state.message = safe(describe(request), state.charset) + "? y sends it, any other key does not";
    state.asked = std::move(request);
}

void answerQuestion(UiState& state, KeyEffect& effect, char32_t key)
{
    if (key == U'y' || key == U'Y')
        effect.send = state.asked;
    else
        state.message = "nothing was sent";
    state.asked.reset();
}

void pressRequestKey(UiState& state, KeyEffect& effect, char32_t key, const LiveData& data)
{
    const auto* const found = std::find_if(RequestKeys.begin(), RequestKeys.end(), [&](const RequestKey& each) {
        return each.key == key && each.view == state.view;
    });
    if (found == RequestKeys.end()) {
        const auto* const other = std::find_if(RequestKeys.begin(), RequestKeys.end(),
                                               [key](const RequestKey& each) { return each.key == key; });
        if (other != RequestKeys.end()) {
            state.message = std::string("that key sends '") + other->name + "': press " +
                            std::to_string(static_cast<int>(other->view) + 1) + " and select a row first";
        }
        return;
    }
    const auto entity = selectedEntity(data, state, found->kind);
    if (!entity) {
        state.message = "there is no row to send this for";
        return;
    }
    takeOrAsk(state, effect, {found->name, found->opcode, entity, found->publishState}, found->asks);
}

} // namespace plcctl::live
