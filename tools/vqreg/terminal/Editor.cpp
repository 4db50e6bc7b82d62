#include "tools/vqreg/terminal/Editor.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/FileHandle.h"
#include "tools/vqreg/base/FileText.h"
#include "tools/vqreg/terminal/Confirm.h"
#include "tools/vqreg/terminal/LastWords.h"
#include "tools/vqreg/terminal/Output.h"

namespace vqreg {

namespace {

// A variable that is set and not empty.
const char* variable(const char* name) {
    const char* const value = std::getenv(name);
    return value && *value ? value : nullptr;
}

// The keys that end the editor's work are not meant for this process.
class SignalsIgnored {
public:
    SignalsIgnored()
        : m_interrupt(std::signal(SIGINT, SIG_IGN)), m_quit(std::signal(SIGQUIT, SIG_IGN)) {}
    ~SignalsIgnored() {
        std::signal(SIGINT, m_interrupt);
        std::signal(SIGQUIT, m_quit);
    }
    SignalsIgnored(const SignalsIgnored&) = delete;
    SignalsIgnored& operator=(const SignalsIgnored&) = delete;

private:
    using Handler = void (*)(int);
    const Handler m_interrupt;
    const Handler m_quit;
};

// As the shell starts it: the variable may hold options too. The editor gets the signals back.
pid_t start(const char* editor, const std::string& file) {
    std::string command = std::string(editor) + " \"$1\"";
    std::string shell = "sh";
    std::string option = "-c";
    std::string path = file;
    char* const arguments[] = {shell.data(), option.data(), command.data(),
                               shell.data(), path.data(),   nullptr};
    sigset_t defaults;
    sigemptyset(&defaults);
    for (const int signal : {SIGINT, SIGQUIT, SIGPIPE, SIGXFSZ}) {
        sigaddset(&defaults, signal);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t pid = -1;
    const int error = posix_spawn(&pid, "/bin/sh", nullptr, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        throw CommandError(eExit::eUnavailable, fmt::format("/bin/sh: {}", std::strerror(error)));
    }
    return pid;
}

// Says where the text stays; nothing if the editor has removed it.
std::string keep(TemporaryText& file, const std::string& before) {
    file.keep();
    return ::access(file.path().c_str(), F_OK) == 0
               ? before + "the edited text is in " + file.path()
               : std::string();
}

}  // namespace

TemporaryText::TemporaryText(std::string_view text) {
    const char* const directory = variable("TMPDIR");
    m_path = std::string(directory ? directory : "/tmp") + "/vqreg-XXXXXX.cfg";
    const FileHandle file(::mkostemps(m_path.data(), 4, O_CLOEXEC));  // with mode 0600
    if (!file.isOpen() || !writeAll(file.get(), text)) {
        throw CommandError(eExit::eWriteFailed,
                           fmt::format("{}: {}", m_path, std::strerror(errno)));
    }
}

TemporaryText::~TemporaryText() {
    if (!m_isKept) {
        ::unlink(m_path.c_str());
    }
}

bool editText(const TemporaryText& file, const std::string& before,
              const std::function<void(const std::string&)>& check) {
    for (;;) {
        runEditor(file.path());
        const std::string text = readInput(file.path());
        if (text == before) {
            return false;
        }
        try {
            check(text);
            return true;
        } catch (const CommandError& error) {
            if (isatty(STDIN_FILENO) == 0) {
                throw;
            }
            note(error.what());
            if (!confirm("Edit the text again?")) {
                throw;
            }
        }
    }
}

void keepingText(TemporaryText& file, const std::function<void()>& work) {
    // The process may end while it waits for the lock of the store.
    const LastWords words("the edited text is in " + file.path());
    try {
        work();
    } catch (const CommandError& error) {
        throw CommandError(error.code(), error.what() + keep(file, "; "));
    } catch (...) {
        const std::string place = keep(file, "");
        if (!place.empty()) {
            note(place);
        }
        throw;
    }
}

void runEditor(const std::string& file) {
    const char* const visual = variable("VISUAL");
    const char* const usual = variable("EDITOR");
    const char* const editor = visual ? visual : usual ? usual : "vi";
    const SignalsIgnored ignored;
    const pid_t pid = start(editor, file);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw CommandError(eExit::eNegative,
                           fmt::format("the editor \"{}\" failed with status {}", editor,
                                       WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status)));
    }
}

}  // namespace vqreg
