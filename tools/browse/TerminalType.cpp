#include "tools/browse/TerminalType.h"

#include <curses.h>
#include <term.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

void checkTerminal() {
    if (::isatty(STDIN_FILENO) != 1 || ::isatty(STDOUT_FILENO) != 1) {
        throw unavailable("browse needs a terminal; standard input and output must be one");
    }
    const char* const name = std::getenv("TERM");
    if (!name || *name == '\0') {
        throw unavailable("the terminal type is not known; set TERM to it, xterm for example");
    }
    const std::string shownName = shown(name);
    int found = 0;
    if (::setupterm(nullptr, STDOUT_FILENO, &found) != OK) {
        throw unavailable(found == 0
                              ? "the terminal type " + shownName +
                                    " is not known here; set TERM to one that is, xterm for example"
                              : "the descriptions of terminals are missing; Debian has them in "
                                "the package ncurses-base");
    }
    if (!cursor_address || !clear_screen) {
        forgetTerminalType();
        throw unavailable("the terminal type " + shownName +
                          " cannot move its cursor; vqreg tree and "
                          "vqreg ls print what there is");
    }
}

std::string capability(const char* name) {
    // Not every version of curses takes the name of something that is not changed.
    std::string copy = name;
    const char* const text = ::tigetstr(copy.data());
    const bool isThere = text && text != reinterpret_cast<const char*>(-1);
    return isThere ? std::string(text) : std::string();
}

void forgetTerminalType() {
    ::del_curterm(cur_term);
}

}  // namespace vqreg
