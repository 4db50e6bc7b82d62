#include "support/Agent.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "support/Wait.h"

namespace vqtest {

namespace {

void check(bool succeeded, const char* action) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), action);
    }
}

void closeDescriptor(int& descriptor) {
    if (descriptor >= 0) {
        ::close(descriptor);
        descriptor = -1;
    }
}

// The agent's ends get numbers above those they have in the agent, so that giving them their places
// there one after the other overwrites none of them.
int movedUp(int descriptor) {
    const int moved = ::fcntl(descriptor, F_DUPFD_CLOEXEC, kAnswerDescriptor + 1);
    ::close(descriptor);
    check(moved >= 0, "dup");
    return moved;
}

std::vector<std::string> mergedEnvironment(const std::vector<std::string>& added) {
    std::vector<std::string> merged = added;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string own = *entry;
        const std::string name = own.substr(0, own.find('=') + 1);
        const bool isReplaced = std::any_of(
            added.begin(), added.end(), [&](const std::string& a) { return a.starts_with(name); });
        if (!isReplaced) {
            merged.push_back(own);
        }
    }
    return merged;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

pid_t spawn(const Agent::Options& options, const std::array<std::pair<int, int>, 3>& descriptors) {
    std::vector<std::string> words = {options.program};
    words.insert(words.end(), options.arguments.begin(), options.arguments.end());
    std::vector<std::string> environment = mergedEnvironment(options.environment);
    posix_spawn_file_actions_t actions;
    check(::posix_spawn_file_actions_init(&actions) == 0, "spawn");
    for (const auto& [own, agents] : descriptors) {
        ::posix_spawn_file_actions_adddup2(&actions, own, agents);
    }
    pid_t pid = -1;
    errno = ::posix_spawn(&pid, options.program.c_str(), &actions, nullptr, pointers(words).data(),
                          pointers(environment).data());
    const int error = errno;
    ::posix_spawn_file_actions_destroy(&actions);
    errno = error;
    check(error == 0, options.program.c_str());
    return pid;
}

}  // namespace

Agent::Agent(std::string program, std::vector<std::string> environment)
    : Agent(Options{std::move(program), {}, std::move(environment)}) {}

Agent::Agent(Options options) : m_options(std::move(options)) {
    start();
}

Agent::~Agent() {
    if (!m_isReaped) {
        ::kill(m_pid, SIGKILL);
        reap(0);
    }
    closeDescriptor(m_orders);
    closeDescriptor(m_answers);
    closeDescriptor(m_output);
}

void Agent::start() {
    // A socket, because writing to a pipe whose reader is gone would end the test by a signal.
    std::array<int, 2> orders{};
    std::array<int, 2> answers{};
    std::array<int, 2> output{};
    check(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, orders.data()) == 0, "socketpair");
    check(::pipe2(answers.data(), O_CLOEXEC) == 0, "pipe");
    check(::pipe2(output.data(), O_CLOEXEC) == 0, "pipe");
    m_orders = orders[0];
    m_answers = answers[0];
    m_output = output[0];
    check(::fcntl(m_answers, F_SETFL, O_NONBLOCK) == 0, "fcntl");
    check(::fcntl(m_output, F_SETFL, O_NONBLOCK) == 0, "fcntl");
    int agentIn = movedUp(orders[1]);
    int agentOut = movedUp(output[1]);
    int agentAnswers = movedUp(answers[1]);
    m_pid = spawn(
        m_options,
        {{{agentIn, STDIN_FILENO}, {agentOut, STDOUT_FILENO}, {agentAnswers, kAnswerDescriptor}}});
    closeDescriptor(agentIn);
    closeDescriptor(agentOut);
    closeDescriptor(agentAnswers);
}

void Agent::fail(const std::string& what) const {
    throw std::runtime_error("agent " + std::to_string(m_pid) + ": " + what);
}

// Reads all that has arrived. Returns false when nothing can follow any more.
bool Agent::drain(int descriptor, std::string& text) {
    std::array<char, 65536> buffer;
    for (;;) {
        const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
        if (count > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (count == 0) {
            return false;
        } else if (errno == EAGAIN) {
            return true;
        } else if (errno != EINTR) {
            check(false, "read from the agent");
        }
    }
}

// Waits until something has been read from the agent or, where wanted, it accepts an order. Its
// output has to be read all the time, since an agent whose pipe is full does not get on.
void Agent::waitFor(bool forOrder, Time until) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        until - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
        fail("no answer within the deadline");
    }
    std::array<pollfd, 3> polled = {
        {{m_answers, POLLIN, 0}, {m_output, POLLIN, 0}, {forOrder ? m_orders : -1, POLLOUT, 0}}};
    const int ready = ::poll(polled.data(), polled.size(), static_cast<int>(left.count()) + 1);
    check(ready >= 0 || errno == EINTR, "poll");
    otherOutput();
    const bool mayAnswerFollow = drain(m_answers, m_answerText);
    if (!mayAnswerFollow && m_answerText.find('\n') == std::string::npos) {
        fail("it has ended");
    }
}

bool Agent::takeLine(std::string& line) {
    const std::size_t end = m_answerText.find('\n');
    if (end == std::string::npos) {
        return false;
    }
    line = m_answerText.substr(0, end);
    m_answerText.erase(0, end + 1);
    return true;
}

void Agent::tell(const Fields& order) {
    const std::string line = joinFields(order) + "\n";
    const Time until = end();
    std::size_t sent = 0;
    while (sent < line.size()) {
        const ssize_t count =
            ::send(m_orders, line.data() + sent, line.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count >= 0) {
            sent += static_cast<std::size_t>(count);
        } else if (errno == EAGAIN) {
            waitFor(true, until);
        } else if (errno != EINTR) {
            fail(std::string("cannot give an order: ") + std::strerror(errno));
        }
    }
    ++m_outstanding;
}

Answer Agent::answer() {
    if (m_outstanding == 0) {
        throw std::logic_error("no order is waiting for its answer");
    }
    const Time until = end();
    std::string line;
    while (!takeLine(line)) {
        waitFor(false, until);
    }
    --m_outstanding;
    Fields fields = splitFields(line);
    Answer result;
    result.code = codeFromText(fields.front());
    result.fields.assign(fields.begin() + 1, fields.end());
    if (result.code == kBadOrder) {
        fail("it did not understand: " + line);
    }
    return result;
}

Answer Agent::ask(const Fields& order) {
    if (m_outstanding != 0) {
        throw std::logic_error("an earlier order still waits for its answer to be collected");
    }
    tell(order);
    return answer();
}

const std::string& Agent::otherOutput() {
    if (m_output >= 0 && !drain(m_output, m_outputText)) {
        closeDescriptor(m_output);
    }
    return m_outputText;
}

void Agent::kill(int signal) {
    if (m_isReaped) {
        throw std::logic_error("the agent has been reaped");
    }
    check(::kill(m_pid, signal) == 0, "kill");
}

bool Agent::reap(int options) {
    while (!m_isReaped) {
        const pid_t pid = ::waitpid(m_pid, &m_waitStatus, options);
        if (pid == 0) {
            return false;
        }
        check(pid == m_pid || errno == EINTR, "waitpid");
        m_isReaped = pid == m_pid;
    }
    return true;
}

ExitStatus Agent::waitExit() {
    const auto isOver = [this] {
        otherOutput();
        drain(m_answers, m_answerText);
        return reap(WNOHANG);
    };
    if (!waitUntil(isOver, m_options.deadline)) {
        fail("it did not end within the deadline");
    }
    otherOutput();
    ExitStatus status;
    status.isExited = WIFEXITED(m_waitStatus);
    status.isKilled = WIFSIGNALED(m_waitStatus);
    status.number = status.isExited ? WEXITSTATUS(m_waitStatus) : WTERMSIG(m_waitStatus);
    return status;
}

}  // namespace vqtest
