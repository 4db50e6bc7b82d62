#include "tools/vqreg/base/Program.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/FileHandle.h"
#include "tools/vqreg/base/OutputSignals.h"

namespace vqreg {

namespace {

// Of what a program is started with, where the stack has no limit; and what the system adds to it: the
// path of the program, and the interpreter of a script.
constexpr std::size_t kMost = 6 << 20;
constexpr std::size_t kAdded = 2 * PATH_MAX;

// What execvpe takes. Made before a fork: afterwards no memory may be asked for.
class Call {
public:
    Call(std::vector<std::string> words, const std::vector<std::string>& variables)
        : m_words(std::move(words)), m_environment(variables) {
        for (char** each = environ; *each; ++each) {
            const std::string_view present(*each);
            const std::string_view name = present.substr(0, present.find('=') + 1);
            if (std::ranges::none_of(
                    variables, [&](const std::string& own) { return own.starts_with(name); })) {
                m_environment.emplace_back(present);
            }
        }
        m_wordPointers = pointersOf(m_words);
        m_environmentPointers = pointersOf(m_environment);
    }

    // The system counts the texts and a pointer to each.
    std::size_t size() const {
        std::size_t size = 0;
        for (const auto* texts : {&m_words, &m_environment}) {
            for (const std::string& text : *texts) {
                size += text.size() + 1 + sizeof(char*);
            }
        }
        return size;
    }

    // Returns only when that fails, with errno.
    void execute() {
        ::execvpe(m_wordPointers.front(), m_wordPointers.data(), m_environmentPointers.data());
    }

private:
    static std::vector<char*> pointersOf(std::vector<std::string>& texts) {
        std::vector<char*> pointers;
        for (std::string& text : texts) {
            pointers.push_back(text.data());
        }
        pointers.push_back(nullptr);
        return pointers;
    }

    std::vector<std::string> m_words;
    std::vector<std::string> m_environment;
    std::vector<char*> m_wordPointers;
    std::vector<char*> m_environmentPointers;
};

CommandError startFault(const std::string& program, int error) {
    return {error == ENOENT ? eExit::eNotFound : eExit::eNotExecutable,
            fmt::format("{}: {}", program, std::strerror(error))};
}

// The other end is closed by the start of the program, or tells why there was none.
int errorFrom(const FileHandle& pipe) {
    int error = 0;
    ssize_t size = 0;
    do {
        size = ::read(pipe.get(), &error, sizeof error);
    } while (size < 0 && errno == EINTR);
    return size == sizeof error ? error : 0;
}

// In the child.
[[noreturn]] void execute(Call& call, pid_t parent, const SignalInbox& inbox, int pipe) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
        ::_exit(128 + SIGKILL);  // it has died before that was said
    }
    giveBackOutputSignals();
    inbox.giveBack();
    call.execute();
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(pipe, &error, sizeof error);
    ::_exit(127);
}

}  // namespace

void Program::become(const std::vector<std::string>& variables) const {
    Call call(m_words, variables);
    giveBackOutputSignals();
    call.execute();
    const int error = errno;
    ignoreOutputSignals();
    throw startFault(name(), error);
}

void Program::start(const std::vector<std::string>& variables, const SignalInbox& inbox) {
    Call call(m_words, variables);
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw unavailable(fmt::format("pipe: {}", std::strerror(errno)));
    }
    const FileHandle readEnd(ends[0]);
    FileHandle writeEnd(ends[1]);
    const pid_t parent = ::getpid();
    m_pid = ::fork();
    if (m_pid == 0) {
        execute(call, parent, inbox, writeEnd.get());
    }
    if (m_pid < 0) {
        throw unavailable(fmt::format("fork: {}", std::strerror(errno)));
    }
    ::close(writeEnd.release());
    if (const int error = errorFrom(readEnd)) {
        ::waitpid(m_pid, nullptr, 0);
        m_pid = -1;
        throw startFault(name(), error);
    }
}

bool Program::fits(const std::vector<std::string>& variables) const {
    const std::size_t limit = std::min(static_cast<std::size_t>(::sysconf(_SC_ARG_MAX)), kMost);
    return Call(m_words, variables).size() + kAdded <= limit;
}

void Program::signal(int number) const {
    if (isRunning()) {
        ::kill(m_pid, number);
    }
}

// The first process of a container inherits those of others, which want to be waited for as well.
std::optional<int> Program::reap() {
    std::optional<int> code;
    int status = 0;
    for (pid_t pid = 0; (pid = ::waitpid(-1, &status, WNOHANG)) > 0;) {
        if (pid == m_pid) {
            m_pid = -1;
            code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
    }
    return code;
}

}  // namespace vqreg
