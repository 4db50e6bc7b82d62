// Other processes that use the library, under the control of a test.
#ifndef VQTEST_AGENT_H
#define VQTEST_AGENT_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "support/Results.h"
#include "support/Wire.h"

namespace vqtest {

/// An agent's answer to one order: the result code and what follows it.
struct Answer {
    int code = 0;
    Fields fields;
};

struct ExitStatus {
    bool isExited = false;  ///< it ended by itself, with `number` as its exit status
    bool isKilled = false;  ///< it was ended by the signal `number`
    int number = 0;

    bool operator==(const ExitStatus&) const = default;
};

/// A process that takes orders. It ends when the test closes its input at the latest; the
/// destructor kills and reaps it.
///
/// Key paths start at the root key of the agent's session; "." is the root key itself.
/// All members throw std::runtime_error when the agent does not answer within the deadline, ends,
/// or does not understand the order.
class Agent {
public:
    struct Options {
        std::string program;
        std::vector<std::string> arguments = {};
        std::vector<std::string> environment = {};  ///< "NAME=VALUE", added to the test's own
        std::chrono::milliseconds deadline = std::chrono::milliseconds(20000);
    };

    /// Tests of several processes write `Agent agent(VQREG_AGENT_PATH);`.
    explicit Agent(std::string program, std::vector<std::string> environment = {});
    explicit Agent(Options options);
    ~Agent();
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    /// @name Orders as texts
    /// @{
    /// Gives an order and waits for its answer. All earlier orders must have been collected.
    Answer ask(const Fields& order);
    /// Gives an order and does not wait.
    void tell(const Fields& order);
    /// Waits for the answer to the oldest order that was only told.
    Answer answer();
    /// @}

    /// @name Sessions; "-" stands for a null text
    /// @{
    int open(const std::string& file = "-", const std::string& root = "-");
    int close();
    void watch();             ///< registers a change handler
    void unwatch();           ///< removes it
    std::uint64_t changes();  ///< how often the handler was called
    int send();               ///< tells all processes to look for changes
    void dump();              ///< see `otherOutput`
    int exit();               ///< closes the session and ends; collect with `waitExit`
    /// @}

    /// @name Keys and values; each returns the library's result code, or an object with it
    /// @{
    int create(const std::string& path);
    int openKey(const std::string& path);
    int deleteKey(const std::string& path);
    int set(const std::string& path, const std::string& name, std::uint32_t number);
    int set(const std::string& path, const std::string& name, const std::string& text);
    int setBinary(const std::string& path, const std::string& name, const std::string& bytes);
    int deleteValue(const std::string& path, const std::string& name);
    Value get(const std::string& path, const std::string& name);
    Value type(const std::string& path, const std::string& name);  ///< without the bytes
    KeyNames enumKeys(const std::string& path);
    ValueNames enumValues(const std::string& path);
    /// Sets the value to 1, 2, ... `count`. @return how many of these calls failed
    std::uint64_t stress(const std::string& path, const std::string& name, std::uint64_t count);
    /// @}

    pid_t pid() const { return m_pid; }
    void kill(int signal);
    ExitStatus waitExit();

    /// What the agent has printed on its standard output, up to its last answer at least.
    const std::string& otherOutput();

private:
    using Time = std::chrono::steady_clock::time_point;

    void start();
    Time end() const { return std::chrono::steady_clock::now() + m_options.deadline; }
    void waitFor(bool forOrder, Time until);
    bool drain(int descriptor, std::string& text);
    bool takeLine(std::string& line);
    bool reap(int options);
    [[noreturn]] void fail(const std::string& what) const;
    std::uint64_t askCount(const Fields& order);

    Options m_options;
    pid_t m_pid = -1;
    bool m_isReaped = false;
    int m_waitStatus = 0;
    int m_orders = -1;   // our end of the agent's standard input
    int m_answers = -1;  // our ends of its answers and its standard output
    int m_output = -1;
    std::size_t m_outstanding = 0;
    std::string m_answerText;
    std::string m_outputText;
};

}  // namespace vqtest

#endif  // VQTEST_AGENT_H
