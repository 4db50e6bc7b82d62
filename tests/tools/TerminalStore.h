// A store of its own for the command at a terminal.
#ifndef VQTEST_TERMINAL_STORE_H
#define VQTEST_TERMINAL_STORE_H

#include <gmock/gmock.h>

#include <csignal>
#include <string>

#include "tools/TerminalProcess.h"
#include "tools/VqregStore.h"

namespace vqtest::terminal {

inline const std::string kTerminalText =
    "[Velquist]\n"
    "\"Port\"=dword:00000050\n"
    "[Velquist/Sub]\n"
    "\"a\"=string:b\n";

constexpr const char* kInterrupted = "vqreg: interrupted; nothing has been changed\n";

// Ended well, with this on the screen.
inline TerminalResult shows(const std::string& screen) {
    return {.status = 0, .screen = screen, .out = "", .err = ""};
}

inline TerminalResult declined(const std::string& screen, const std::string& done) {
    return {.status = 1,
            .screen = screen + "vqreg: nothing has been " + done + "\n",
            .out = "",
            .err = ""};
}

class Terminal : public VqregStore {
protected:
    Terminal() { file.write(kTerminalText); }

    // The command on the store, at a terminal.
    TerminalProcess start(Arguments arguments, const Environment& more = {},
                          const TerminalStreams& streams = {}) const {
        arguments.insert(arguments.begin(), {"--file", file.path()});
        Environment environment = {{"LC_ALL", "C"}, {"TERM", "xterm"}, {"NO_COLOR", ""}};
        environment.insert(environment.end(), more.begin(), more.end());
        return TerminalProcess(VQREG_COMMAND_PATH, arguments, environment, streams);
    }

    TerminalResult answer(const Arguments& arguments, const std::string& question,
                          const std::string& keys) const {
        TerminalProcess command = start(arguments);
        command.expect(question);
        command.type(keys);
        return command.finish();
    }

    // Typed at the question, Ctrl-C ends the command by the signal and leaves the store alone.
    void expectInterruptible(const Arguments& arguments, const std::string& question) const {
        TerminalProcess command = start(arguments);
        command.expect(question);
        const TerminalResult result = command.interrupt();
        EXPECT_EQ(-SIGINT, result.status);
        EXPECT_THAT(result.screen, testing::HasSubstr(question + "\n" + kInterrupted));
        EXPECT_EQ(kTerminalText, file.read());
    }
};

}  // namespace vqtest::terminal

#endif  // VQTEST_TERMINAL_STORE_H
