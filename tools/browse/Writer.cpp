#include "tools/browse/Writer.h"

#include <VQRegLib.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>

#include "tools/browse/LastResort.h"
#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/FileIdentity.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/store/StoreText.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/ConfigText.h"

namespace vqreg {

namespace {

void checkIsAsExpected(const StoreOptions& options, const Edit& edit) {
    const std::string text = readStoreFile(storeFile(options), rootName(options));
    const ConfigText parsed = parseConfigText(text);
    const Key* const root = findKey(parsed.top, rootPath(options));
    if (const auto stale = staleness(root ? *root : Key(), edit)) {
        throw CommandError(eExit::eNegative, *stale);
    }
}

// From here on, what gives the edit up would leave half of a file beside the store's.
void keepWriting() {
    sigset_t end;
    sigemptyset(&end);
    sigaddset(&end, SIGTERM);
    sigprocmask(SIG_BLOCK, &end, nullptr);
}

// What takes long is done before the lock is taken, and need not be done again where the file is the
// same one still.
void write(const StoreOptions& options, const Edit& edit) {
    StoreSession session(options);
    const auto seen = FileIdentity::of(storeFile(options));
    checkIsAsExpected(options, edit);
    session.begin();
    keepWriting();
    if (FileIdentity::of(storeFile(options)) != seen) {
        checkIsAsExpected(options, edit);
    }
    session.apply(edit.changes);
    session.end();
}

int written(const StoreOptions& options, const Edit& edit) {
    try {
        write(options, edit);
        return 0;
    } catch (const CommandError& error) {
        note(error.what());
        return static_cast<int>(error.code());
    } catch (const std::exception& error) {
        note(error.what());
    } catch (const VQException& error) {
        note(std::string("out of memory in the library, ") + error.m_szText);
    }
    return static_cast<int>(eExit::eUnavailable);
}

// What is typed is for the screen's process; stopped with it, the child would keep the lock. It ends with
// it, too: nobody would know of what it writes.
void leaveTerminal(int messages, pid_t parent) {
    forgetTerminal();
    for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGTSTP}) {
        std::signal(signal, SIG_IGN);
    }
    std::signal(SIGTERM, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) {
        ::_exit(static_cast<int>(eExit::eUnavailable));
    }
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    ::dup2(nowhere, STDIN_FILENO);
    ::dup2(nowhere, STDOUT_FILENO);
    ::dup2(messages, STDERR_FILENO);
}

}  // namespace

Writer::~Writer() {
    if (isBusy()) {
        cancel();
        ::waitpid(m_child, nullptr, 0);
    }
}

void Writer::start(const StoreOptions& options, const Edit& edit) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        throw unavailable(fmt::format("a pipe: {}", std::strerror(errno)));
    }
    m_messages.emplace(ends[0]);
    const FileHandle messages(ends[1]);
    m_said.clear();
    m_message.clear();
    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child < 0) {
        const int reason = errno;
        m_messages.reset();
        throw unavailable(fmt::format("a process: {}", std::strerror(reason)));
    }
    if (child == 0) {
        leaveTerminal(messages.get(), parent);
        ::_exit(written(options, edit));
    }
    m_child = child;
}

std::optional<int> Writer::take() {
    const std::size_t before = m_said.size();
    std::array<char, 4096> bytes{};
    ssize_t size = 0;
    while ((size = ::read(fd(), bytes.data(), bytes.size())) > 0) {
        m_said.append(bytes.data(), static_cast<std::size_t>(size));
    }
    m_hasSaidMore = m_said.size() > before;
    const std::size_t end = m_said.find_last_of('\n');
    if (end != std::string::npos) {
        const std::size_t last = end == 0 ? std::string::npos : m_said.rfind('\n', end - 1);
        m_message = m_said.substr(last + 1, end - last - 1);
        if (m_message.starts_with("vqreg: ")) {
            m_message.erase(0, 7);
        }
    }
    if (size != 0) {
        return std::nullopt;  // there is more to come
    }
    int status = 0;
    while (::waitpid(m_child, &status, 0) < 0 && errno == EINTR) {
    }
    m_child = 0;
    m_messages.reset();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void Writer::cancel() const {
    if (isBusy()) {
        ::kill(m_child, SIGTERM);
    }
}

}  // namespace vqreg
