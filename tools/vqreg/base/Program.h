// Another program with this one's standard streams and terminal.
#ifndef TOOLS_VQREG_BASE_PROGRAM_H
#define TOOLS_VQREG_BASE_PROGRAM_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "tools/vqreg/base/SignalInbox.h"

namespace vqreg {

// It is found in PATH, and gets the environment of this process with variables added, each
// "NAME=text". It is in the process group of this one, so that the keys of a terminal reach it too.
class Program {
public:
    // The program and its arguments.
    explicit Program(std::vector<std::string> words) : m_words(std::move(words)) {}

    // Puts it in the place of this process. Throws eNotFound or eNotExecutable.
    [[noreturn]] void become(const std::vector<std::string>& variables) const;

    // Likewise, as a child, which dies with this process. It must not run yet.
    void start(const std::vector<std::string>& variables, const SignalInbox& inbox);
    // Whether the system would start it with so much.
    bool fits(const std::vector<std::string>& variables) const;
    bool isRunning() const { return m_pid > 0; }
    void signal(int number) const;

    // To be called after SIGCHLD. The exit code if it has ended, 128 and the number of a signal.
    std::optional<int> reap();

    const std::string& name() const { return m_words.front(); }

private:
    std::vector<std::string> m_words;
    pid_t m_pid = -1;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_BASE_PROGRAM_H
