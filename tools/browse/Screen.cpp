#include "tools/browse/Screen.h"

#define NCURSES_NOMACROS  // which have the names of everybody's functions
#include <curses.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <utility>

#include "tools/browse/LastResort.h"
#include "tools/browse/TerminalType.h"
#include "tools/vqreg/base/ExitCode.h"

namespace vqreg {

namespace {

constexpr int kEscapeDelay =
    100;  // milliseconds in which the rest of a key's letters come over a network

enum : short { ePairKey = 1, ePairType, ePairNew, ePairChanged, ePairLost };

void startColors() {
    ::start_color();
    ::use_default_colors();
    ::init_pair(ePairKey, COLOR_BLUE, -1);
    ::init_pair(ePairType, COLOR_CYAN, -1);
    ::init_pair(ePairNew, COLOR_GREEN, -1);
    ::init_pair(ePairChanged, COLOR_YELLOW, -1);
    ::init_pair(ePairLost, COLOR_RED, -1);
}

struct Style {
    attr_t attributes = A_NORMAL;
    short pair = 0;
};

Style styleOf(eLook look) {
    switch (look) {
        case eLook::eTitle:
            return {A_BOLD, 0};
        case eLook::eKey:
            return {A_BOLD, ePairKey};
        case eLook::eType:
            return {A_NORMAL, ePairType};
        case eLook::eChosen:
        case eLook::eStatus:
            return {A_REVERSE, 0};
        case eLook::eElsewhere:
            return {A_UNDERLINE, 0};
        case eLook::eMarkNew:
            return {A_BOLD, ePairNew};
        case eLook::eMarkChanged:
            return {A_BOLD, ePairChanged};
        case eLook::eMarkLost:
            return {A_BOLD, ePairLost};
        case eLook::eMessage:
            return {A_BOLD, 0};
        case eLook::ePlain:
            break;
    }
    return {};
}

// Nobody is to be able to stop the screen with a key: the program would not end either.
void passEveryKey() {
    termios modes{};
    ::tcgetattr(STDIN_FILENO, &modes);
    modes.c_iflag &= ~static_cast<tcflag_t>(IXON);
    ::tcsetattr(STDIN_FILENO, TCSADRAIN, &modes);
    ::def_prog_mode();
}

// Writing may take as long as the other end of a connection likes: while an object lives, what is blocked
// otherwise ends the process.
class Interruptible {
public:
    Interruptible() {
        sigset_t endings;
        sigemptyset(&endings);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
            sigaddset(&endings, signal);
        }
        sigprocmask(SIG_UNBLOCK, &endings, &m_before);
    }
    ~Interruptible() { sigprocmask(SIG_SETMASK, &m_before, nullptr); }
    Interruptible(const Interruptible&) = delete;
    Interruptible& operator=(const Interruptible&) = delete;

private:
    sigset_t m_before{};
};

SCREEN* g_screen = nullptr;

}  // namespace

Screen::Screen(bool isColored) {
    checkTerminal();
    rememberTerminal();
    forgetTerminalType();
    // Else curses ignores the signal while it draws, and one that has come and waits to be read is lost.
    std::signal(SIGTSTP, [](int) {});
    g_screen = ::newterm(nullptr, stdout, stdin);
    if (!g_screen) {
        throw unavailable("the terminal cannot be used as a screen");
    }
    ::set_escdelay(kEscapeDelay);
    ::cbreak();
    ::noecho();
    ::nonl();
    passEveryKey();
    ::keypad(stdscr, TRUE);
    m_keyboard.define();
    ::nodelay(stdscr, TRUE);
    ::intrflush(stdscr, FALSE);
    if (isColored && ::has_colors()) {
        startColors();
    }
    ::curs_set(0);
}

Screen::~Screen() {
    makeRoom();
    giveBack();
    forgetTerminal();
    ::delscreen(g_screen);
    g_screen = nullptr;
}

int Screen::rows() const {
    return LINES;
}

int Screen::columns() const {
    return COLS;
}

void Screen::begin() {
    ::erase();
    m_hasCursor = false;
}

void Screen::put(int row, int column, const std::wstring& text, eLook look) {
    const Style style = styleOf(look);
    ::attr_set(style.attributes, style.pair, nullptr);
    ::mvaddwstr(row, column, text.c_str());
    ::attr_set(A_NORMAL, 0, nullptr);
}

void Screen::setCursor(int row, int column) {
    m_hasCursor = true;
    ::move(row, column);
}

void Screen::finish() {
    const Interruptible writing;
    ::curs_set(m_hasCursor ? 1 : 0);
    ::refresh();
    // Not before, which in the background stops the process: the terminal may be somebody else's.
    if (!std::exchange(m_tellsPasted, true)) {
        m_keyboard.tellPasted(true);
    }
}

// Curses would set the terminal to its keys, though not yet to the rest.
std::optional<Keystroke> Screen::read() {
    return ::isendwin() ? std::nullopt : m_keyboard.read();
}

void Screen::resize() {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0) {
        ::resizeterm(size.ws_row, size.ws_col);
    }
}

void Screen::redraw() {
    ::clearok(stdscr, TRUE);
}

void Screen::giveBack() {
    const Interruptible writing;
    m_keyboard.tellPasted(false);
    ::endwin();
}

void Screen::retake() {
    if (!::isendwin()) {
        const Interruptible writing;
        ::endwin();  // so that the next picture begins with the modes
    }
    m_tellsPasted = false;
    redraw();
}

// The signal is blocked while the screen lives, and stops the process only where a shell can let it go
// on.
void Screen::suspend() {
    giveBack();
    std::signal(SIGTSTP, SIG_DFL);
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTSTP);
    std::raise(SIGTSTP);
    sigprocmask(SIG_UNBLOCK, &stop, nullptr);  // here it stops
    sigprocmask(SIG_BLOCK, &stop, nullptr);
    resize();
    retake();
}

}  // namespace vqreg
