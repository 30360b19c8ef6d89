#include "keys.h"

#include "requestkeys.h"
#include "utf.h"
#include "views.h"

#include <algorithm>

namespace plcctl::live {

namespace {

void show(UiState& state, View view)
{
    state.view = view;
    state.overlay = Overlay::None;
}

void turnViews(UiState& state, int step)
{
    const int count = static_cast<int>(Views);
    show(state, static_cast<View>((static_cast<int>(state.view) + count + step) % count));
}

void typeFilter(UiState& state, char32_t key)
{
    std::u32string text = decodeUtf8Lossy(*state.typed);
    switch (key) {
    case KeyEscape:
        state.typed.reset();
        return;
    case KeyEnter:
        state.current().filter = *state.typed;
        state.current().selected.reset();
        state.typed.reset();
        return;
    case KeyBackspace:
        if (!text.empty())
            text.pop_back();
        break;
    default:
        if (key >= U' ' && isCodePoint(key))
            text += key;
    }
    state.typed = encodeUtf8(text);
}

void openOverlay(UiState& state, Overlay overlay)
{
    state.overlay = state.overlay == overlay ? Overlay::None : overlay;
    state.scrolled = 0;
}

void escape(UiState& state)
{
    if (state.overlay != Overlay::None)
        state.overlay = Overlay::None;
    else
        state.current().filter.clear();
}

void turnSeverity(UiState& state)
{
    constexpr std::array Steps{Severity::Info, Severity::Warn, Severity::Error, Severity::Verbose};
    const auto* const now = std::find(Steps.begin(), Steps.end(), state.mildest);
    state.mildest = now == Steps.end() || now + 1 == Steps.end() ? Steps.front() : *(now + 1);
    state.views[static_cast<std::size_t>(View::Log)].selected.reset();
}

} // namespace

KeyEffect press(UiState& state, char32_t key, const LiveData& data)
{
    KeyEffect effect;
    if (state.asked) {
        answerQuestion(state, effect, key);
        return effect;
    }
    if (state.typed) {
        typeFilter(state, key);
        return effect;
    }
    state.message.clear();
    if (move(state, key, data))
        return effect;
    switch (key) {
    case U'q':
    case U'Q':
        effect.quit = true;
        break;
    case U'1':
    case U'2':
    case U'3':
    case U'4':
    case U'5':
        show(state, static_cast<View>(key - U'1'));
        break;
    case KeyTab:
    case KeyRight:
        turnViews(state, 1);
        break;
    case KeyBackTab:
    case KeyLeft:
        turnViews(state, -1);
        break;
    case U'?':
    case U'h':
        openOverlay(state, Overlay::Help);
        break;
    case KeyEnter:
        if (state.view != View::Overview && selectedRow(shownTable(data, state), state.current()))
            openOverlay(state, Overlay::Details);
        break;
    case KeyEscape:
        escape(state);
        break;
    case U'/':
        if (state.view == View::Overview)
            state.message = "there is nothing to filter here: press 2 to 5 first";
        else
            state.typed = state.current().filter;
        break;
    case U's':
        sortByNext(state, data);
        break;
    case U'r':
        state.current().descending = !state.current().descending;
        break;
    case U'v':
        turnSeverity(state);
        break;
    case U'p':
        state.paused = !state.paused;
        effect.pauseChanged = true;
        break;
    case U'P':
        ask(state, {"pause", MRO_PAUSE, std::nullopt});
        break;
    case U'S':
        ask(state, {"start", MRO_START, std::nullopt});
        break;
    default:
        pressRequestKey(state, effect, key, data);
    }
    return effect;
}

} // namespace plcctl::live
