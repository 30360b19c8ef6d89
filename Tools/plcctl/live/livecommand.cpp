#include "commands.h"
#include "keys.h"
#include "page.h"
#include "requester.h"
#include "sampler.h"
#include "terminal.h"

#include "devicepaths.h"

#include <memory>

namespace plcctl {

namespace {

using Clock = std::chrono::steady_clock;

struct LiveArguments
{
    std::string configDirectory = DevicePaths::ConfigurationDirectory;
    std::string logFile = DevicePaths::LogFile;
    unsigned intervalMilliseconds = 1000;
};

// While an answer is waited for.
constexpr auto AnswerInterval = std::chrono::milliseconds(100);

// One run of the view.
class LiveView
{
public:
    explicit LiveView(const LiveArguments& arguments)
        : m_interval(arguments.intervalMilliseconds), m_sampler(arguments.configDirectory, arguments.logFile)
    {
        m_state.charset = m_terminal.charset();
    }

    void run()
    {
        auto next = Clock::now();
        while (!m_terminal.isEnding() && !m_isOver) {
            if (Clock::now() >= next) {
                look();
                next = Clock::now() + m_interval;
            }
            takeAnswers();
            m_terminal.draw(live::drawPage(m_shown, m_state, m_terminal.width(), m_terminal.height()));
            waitForKeys(next);
        }
    }

private:
    void look()
    {
        live::LiveData data = m_sampler.look();
        // What is held stays on the screen; the counting goes on.
        if (!m_state.paused)
            m_shown = std::move(data);
    }

    void takeAnswers()
    {
        const auto text = m_requester.look();
        if (text && !m_state.asked && !m_state.typed)
            m_state.message = live::safe(*text, m_state.charset);
    }

    void waitForKeys(Clock::time_point next)
    {
        auto patience = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
        if (m_requester.isWaiting())
            patience = std::min(patience, AnswerInterval);
        // All keys that are there are taken before the screen is drawn again: some are held down.
        for (auto key = m_terminal.key(patience); key && !m_isOver; key = m_terminal.key({}))
            press(*key);
    }

    void press(char32_t key)
    {
        const live::KeyEffect effect = live::press(m_state, key, m_shown);
        m_isOver = effect.quit;
        if (effect.pauseChanged && !m_state.paused)
            look();
        if (effect.send)
            m_state.message = live::safe(m_requester.send(*effect.send, m_sampler.config()), m_state.charset);
    }

    live::Terminal m_terminal;
    std::chrono::milliseconds m_interval;
    live::Sampler m_sampler;
    live::Requester m_requester;
    live::UiState m_state;
    live::LiveData m_shown;
    bool m_isOver = false;
};

} // namespace

void addLiveCommand(CLI::App& app, Action& action)
{
    const auto arguments = std::make_shared<LiveArguments>();
    CLI::App* command = app.add_subcommand("live", "Watch the service on a full screen, and send requests by key");
    command->add_option("--config", arguments->configDirectory, "Configuration files to take names and addresses from")
        ->type_name("DIR")
        ->capture_default_str();
    command->add_option("--log", arguments->logFile, "The service's log")->type_name("FILE")->capture_default_str();
    command->add_option("--interval", arguments->intervalMilliseconds, "Milliseconds between two looks")
        ->type_name("MS")
        ->check(CLI::Range(50, 60'000))
        ->capture_default_str();
    command->footer("Looks at tag memory, its journal, the configuration and the log, and writes nothing until a key\n"
                    "for a request is pressed. Needs a terminal of 64x12 or larger; `?` shows the keys, `q` ends it.\n"
                    "With NO_COLOR set it shows no colours.\n"
                    "Example:\n  plcctl live --interval 500");
    command->callback([&action, arguments] {
        action = [arguments] {
            LiveView(*arguments).run();
            return ExitCode::Done;
        };
    });
}

} // namespace plcctl
