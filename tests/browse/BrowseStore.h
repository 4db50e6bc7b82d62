// "vqreg browse" on a store of its own, at a terminal that is looked at.
#ifndef VQTEST_BROWSE_STORE_H
#define VQTEST_BROWSE_STORE_H

#include <VQRegLib.h>
#include <gmock/gmock.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "browse/VirtualScreen.h"
#include "tools/TerminalProcess.h"
#include "tools/VqregStore.h"

namespace vqtest::browse {

constexpr const char* kUp = "\x1bOA";
constexpr const char* kDown = "\x1bOB";
constexpr const char* kRight = "\x1b[C";
constexpr const char* kLeft = "\x1b[D";
constexpr const char* kPageDown = "\x1b[6~";
constexpr const char* kPageUp = "\x1b[5~";
constexpr const char* kDelete = "\x1b[3~";
constexpr const char* kEscape = "\x1b";
constexpr const char* kEnter = "\r";
constexpr const char* kF1 = "\x1bOP";
constexpr const char* kF4 = "\x1bOS";
constexpr const char* kF5 = "\x1b[15~";
constexpr const char* kF6 = "\x1b[17~";
constexpr const char* kF7 = "\x1b[18~";
constexpr const char* kF8 = "\x1b[19~";
constexpr const char* kF10 = "\x1b[21~";

inline const std::string kText =
    "[Velquist]\n"
    "\"Port\"=dword:00000050\n"
    "[Velquist/Network]\n"
    "\"Host\"=string:a.example\n"
    "\"Key\"=binary:00FF10\n"
    "[Velquist/Network/Ports]\n"
    "\"Http\"=dword:00001F90\n"
    "[Velquist/Sound]\n";

struct Size {
    unsigned short rows = 14;
    unsigned short columns = 80;
};

// The first word that /proc tells of a process under such a name; empty when it is gone.
inline std::string statusOf(pid_t pid, const std::string& name) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string word;
    while (status >> word && word != name + ":") {
    }
    status >> word;
    return status ? word : "";
}

// Whether the process has been sent a signal that it has not taken yet.
inline bool isPending(pid_t pid, int signal) {
    const std::string signals = statusOf(pid, "ShdPnd");
    return !signals.empty() && (std::stoull(signals, nullptr, 16) >> (signal - 1) & 1) != 0;
}

// The program at its terminal.
class Browsing {
public:
    Browsing(const std::string& file, const std::vector<std::string>& arguments,
             const Environment& environment, Size size)
        : m_file(file),
          m_size(size),
          m_process(VQREG_COMMAND_PATH, arguments, environment,
                    {.columns = size.columns, .rows = size.rows}),
          m_before(m_process.modesAtFirst()),
          m_screen(size.rows, size.columns) {
        // Keys that come before are the terminal's, which takes some of them for itself.
        waitFor([](const std::string& all) {
            return all.find("?:help") != std::string::npos ||
                   all.find("too small") != std::string::npos;
        });
    }

    void type(const std::string& keys) { m_process.type(keys); }
    TerminalProcess& process() { return m_process; }
    const VirtualScreen& screen() const { return m_screen; }
    const termios& modesBefore() const { return m_before; }
    std::size_t bytesShown() const { return m_process.shown().size(); }

    void resize(Size size) {
        m_screen.resize(size.rows, size.columns);
        m_process.resize(size.rows, size.columns);
    }

    /// All rows, with FILE for the path of the store, each with its end.
    std::string text() const {
        std::string text;
        for (const std::string& row : m_screen.rows()) {
            text += row + '\n';
        }
        for (std::size_t at = 0; (at = text.find(m_file)) != std::string::npos;) {
            text.replace(at, m_file.size(), "FILE");
        }
        return text;
    }

    /// Waits until the screen is as is wanted.
    bool waitFor(const std::function<bool(const std::string&)>& isWanted) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (;;) {
            m_screen.show(m_process.shown().substr(m_seen));
            m_seen = m_process.shown().size();
            if (isWanted(text())) {
                return true;
            }
            if (std::chrono::steady_clock::now() > end || !more()) {
                return false;
            }
        }
    }

    /// Fails with what is there instead.
    void expect(const std::string& part) {
        EXPECT_TRUE(waitFor([&](const std::string& all) {
            return all.find(part) != std::string::npos;
        })) << "\""
            << part << "\" is not on the screen:\n"
            << text();
    }
    void expectNot(const std::string& part) {
        EXPECT_TRUE(waitFor([&](const std::string& all) {
            return all.find(part) == std::string::npos;
        })) << "\""
            << part << "\" is on the screen:\n"
            << text();
    }
    /// The whole screen, whose first line end is that of the literal's beginning.
    void expectScreen(const std::string& wanted) {
        EXPECT_TRUE(waitFor([&](const std::string& all) { return '\n' + all == wanted; }))
            << "is shown:\n"
            << text() << "instead of:" << wanted;
    }

    /// The process that makes its edit; 0 for none.
    pid_t writer() const {
        const std::string pid = std::to_string(m_process.pid());
        std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
        pid_t child = 0;
        children >> child;
        return child;
    }

    /// Waits for the end, and looks whether the terminal is as it was.
    void expectEnd(int status) {
        const TerminalResult result = m_process.finish();
        EXPECT_EQ(status, result.status) << result.screen;
        m_screen.show(result.screen.substr(m_seen));
        m_seen = result.screen.size();
        expectAsBefore(m_process.modes());
    }
    void expectAsBefore(const termios& modes) const {
        EXPECT_FALSE(m_screen.isAlternate());
        EXPECT_TRUE(m_screen.hasCursor());
        // Pasted texts are told by the terminal no more.
        EXPECT_LT(m_process.shown().rfind("\x1b[?2004h") + 1,
                  m_process.shown().rfind("\x1b[?2004l") + 1);
        EXPECT_EQ(m_before.c_iflag, modes.c_iflag);
        EXPECT_EQ(m_before.c_oflag, modes.c_oflag);
        EXPECT_EQ(m_before.c_cflag, modes.c_cflag);
        EXPECT_EQ(m_before.c_lflag, modes.c_lflag);
        EXPECT_TRUE(
            std::equal(std::begin(m_before.c_cc), std::end(m_before.c_cc), std::begin(modes.c_cc)));
    }

private:
    bool more() {
        try {
            return m_process.waitForMore(std::chrono::seconds(3));
        } catch (const std::runtime_error&) {
            return true;
        }
    }

    const std::string m_file;
    const Size m_size;
    TerminalProcess m_process;
    const termios m_before;
    VirtualScreen m_screen;
    std::size_t m_seen = 0;
};

class BrowseTest : public VqregStore {
protected:
    BrowseTest() { file.write(kText); }

    static Environment environment() {
        return {{"LC_ALL", "C.UTF-8"},
                {"TERM", "xterm"},
                {"NO_COLOR", "1"},
                {"LINES", ""},
                {"COLUMNS", ""}};
    }

    Browsing start(std::vector<std::string> arguments = {}, Size size = {},
                   const Environment& more = {}) const {
        arguments.insert(arguments.begin(), {"--file", file.path(), "browse"});
        Environment all = environment();
        all.insert(all.end(), more.begin(), more.end());
        return {file.path(), arguments, all, size};
    }
};

}  // namespace vqtest::browse

#endif  // VQTEST_BROWSE_STORE_H
