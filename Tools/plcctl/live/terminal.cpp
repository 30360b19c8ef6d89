#include "terminal.h"

#include "failure.h"
#include "keys.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <curses.h>
#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

// curses.h names macros like common words.
#undef erase
#undef move
#undef refresh
#undef timeout

namespace plcctl::live {

namespace {

enum ColorPair : short
{
    GoodPair = 1,
    WarningPair,
    BadPair
};

struct KeyCode
{
    int code;
    char32_t key;
};

constexpr std::array KeyCodes{
    KeyCode{KEY_UP, KeyUp},       KeyCode{KEY_DOWN, KeyDown},    KeyCode{KEY_LEFT, KeyLeft},
    KeyCode{KEY_RIGHT, KeyRight}, KeyCode{KEY_PPAGE, KeyPageUp}, KeyCode{KEY_NPAGE, KeyPageDown},
    KeyCode{KEY_HOME, KeyHome},   KeyCode{KEY_END, KeyEnd},      KeyCode{KEY_BACKSPACE, KeyBackspace},
    KeyCode{KEY_ENTER, KeyEnter}, KeyCode{KEY_BTAB, KeyBackTab},
};

constexpr std::array CharacterKeys{
    KeyCode{'\r', KeyEnter},  KeyCode{'\n', KeyEnter},     KeyCode{'\t', KeyTab},
    KeyCode{0x1B, KeyEscape}, KeyCode{0x7F, KeyBackspace}, KeyCode{0x08, KeyBackspace},
};

// What a crash needs to leave the terminal as it was: the handler can't ask anybody any more.
termios modesBefore;
std::array<char, 256> restoringText;
volatile std::sig_atomic_t restoringLength = 0;

void addRestoringText(const char* capability)
{
    const char* const text = tigetstr(capability);
    if (text == nullptr || text == reinterpret_cast<const char*>(-1))
        return;
    const std::size_t length = std::strlen(text);
    const auto used = static_cast<std::size_t>(restoringLength);
    if (used + length > restoringText.size())
        return;
    std::copy_n(text, length, restoringText.begin() + static_cast<std::ptrdiff_t>(used));
    restoringLength = static_cast<std::sig_atomic_t>(used + length);
}

void restoreAndDie(int signal)
{
    tcsetattr(STDIN_FILENO, TCSANOW, &modesBefore);
    if (write(STDOUT_FILENO, restoringText.data(), static_cast<std::size_t>(restoringLength)) < 0)
        errno = 0; // there is nobody to tell
    raise(signal); // its handler was used up
}

void restoreAfterCrashes()
{
    for (const char* const capability : {"sgr0", "rmkx", "cnorm", "rmcup"})
        addRestoringText(capability);
    struct sigaction action
    {
    };
    action.sa_handler = restoreAndDie;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
    for (const int signal : {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL})
        sigaction(signal, &action, nullptr);
}

template<std::size_t Count>
std::optional<char32_t> keyOf(const std::array<KeyCode, Count>& codes, int code)
{
    const auto* const found =
        std::find_if(codes.begin(), codes.end(), [code](const KeyCode& each) { return each.code == code; });
    return found == codes.end() ? std::nullopt : std::optional(found->key);
}

bool wantsColors()
{
    const char* const no = std::getenv("NO_COLOR");
    return (no == nullptr || *no == '\0') && has_colors();
}

} // namespace

Terminal::Terminal()
{
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
        throw Failure(ExitCode::Usage, "the live view needs a terminal for its input and output; for scripts there is "
                                       "`plcctl status --watch --json`");
    }
    std::setlocale(LC_CTYPE, "");
    m_charset = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0 ? Charset::Unicode : Charset::Ascii;
    tcgetattr(STDIN_FILENO, &modesBefore);
    takeSignals();
    takeScreen();
}

Terminal::~Terminal()
{
    endwin();
    delscreen(static_cast<SCREEN*>(m_screen));
    close(m_signals);
}

void Terminal::takeSignals()
{
    // Blocked, not handled: they are read where keys are read, and interrupt nothing else.
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaddset(&signals, signal);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    m_signals = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

void Terminal::takeScreen()
{
    m_screen = newterm(nullptr, stdout, stdin);
    if (m_screen == nullptr) {
        const char* const type = std::getenv("TERM");
        throw Failure(ExitCode::Usage, "nothing is known of a terminal of the type '" +
                                           std::string(type == nullptr ? "" : type) +
                                           "': set TERM to one that is, such as xterm or vt100");
    }
    restoreAfterCrashes();
    cbreak();
    noecho();
    nonl();
    keypad(stdscr, true);
    nodelay(stdscr, true);
    set_escdelay(25); // milliseconds: a lone Esc shall act at once
    curs_set(0);
    m_hasColors = wantsColors() && start_color() == OK && use_default_colors() == OK;
    if (!m_hasColors)
        return;
    init_pair(GoodPair, COLOR_GREEN, -1);
    init_pair(WarningPair, COLOR_YELLOW, -1);
    init_pair(BadPair, COLOR_RED, -1);
}

int Terminal::width() const
{
    return getmaxx(stdscr);
}

int Terminal::height() const
{
    return getmaxy(stdscr);
}

void Terminal::followSize()
{
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0)
        return;
    if (!is_term_resized(size.ws_row, size.ws_col))
        return;
    resizeterm(size.ws_row, size.ws_col);
    // Terminals move what they show when their size changes.
    clearok(stdscr, true);
}

void Terminal::setStyle(Style style)
{
    const auto colored = [this](short pair, attr_t plain) {
        attr_set(m_hasColors ? A_NORMAL : plain, m_hasColors ? pair : short{0}, nullptr);
    };
    switch (style) {
    case Style::Plain:
        return colored(0, A_NORMAL);
    case Style::Dim:
        attr_set(A_DIM, 0, nullptr);
        return;
    case Style::Strong:
        attr_set(A_BOLD, 0, nullptr);
        return;
    case Style::Good:
        return colored(GoodPair, A_NORMAL);
    case Style::Warning:
        return colored(WarningPair, A_UNDERLINE);
    case Style::Bad:
        return colored(BadPair, A_BOLD);
    case Style::Bar:
        attr_set(A_REVERSE, 0, nullptr);
        return;
    case Style::Selected:
        attr_set(A_REVERSE | A_BOLD, 0, nullptr);
        return;
    }
}

void Terminal::draw(const std::vector<Line>& lines)
{
    followSize();
    werase(stdscr);
    for (std::size_t at = 0; at < lines.size(); ++at) {
        wmove(stdscr, static_cast<int>(at), 0);
        for (const Span& span : lines[at]) {
            setStyle(span.style);
            waddstr(stdscr, span.text.c_str());
        }
    }
    setStyle(Style::Plain);
    wrefresh(stdscr);
}

std::optional<char32_t> Terminal::readKey()
{
    std::wint_t character = 0;
    const int kind = get_wch(&character);
    if (kind == ERR)
        return std::nullopt;
    m_emptyReads = 0;
    if (kind == KEY_CODE_YES)
        return keyOf(KeyCodes, static_cast<int>(character));
    return keyOf(CharacterKeys, static_cast<int>(character)).value_or(static_cast<char32_t>(character));
}

std::optional<char32_t> Terminal::key(std::chrono::milliseconds patience)
{
    // The library may have read more than one key already.
    if (const auto key = readKey())
        return key;
    std::array ready{pollfd{STDIN_FILENO, POLLIN, 0}, pollfd{m_signals, POLLIN, 0}};
    const int count = poll(ready.data(), ready.size(), static_cast<int>(std::max<std::int64_t>(patience.count(), 0)));
    if (count <= 0) // time is up, or another signal came: the size has changed, or it goes on after a stop
        return std::nullopt;
    // A terminal that is gone is always ready to be read, and gives nothing.
    constexpr int Hopeless = 50;
    const bool isGone = (ready[0].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0 || ++m_emptyReads > Hopeless;
    m_isEnding = m_isEnding || ready[1].revents != 0 || isGone;
    return m_isEnding ? std::nullopt : readKey();
}

} // namespace plcctl::live
