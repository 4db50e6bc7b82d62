// A program whose environment is a key of a store.
#ifndef TOOLS_VQREG_STORE_KEEPER_H
#define TOOLS_VQREG_STORE_KEEPER_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tools/vqreg/base/Program.h"
#include "tools/vqreg/base/SignalInbox.h"
#include "tools/vqreg/store/ChangeSource.h"
#include "tools/vqreg/store/KeyReader.h"
#include "tools/vqreg/text/Model.h"

namespace vqreg {

struct RunOptions {
    std::string key;
    std::string prefix;
    std::string signal;
    bool restart = false;
    double graceSeconds = 10;
};

// The variables that the values of a key make, as a program gets them.
std::vector<std::string> environmentOf(const Key& key, const std::string& prefix);

// Looks after a program while the values of its key change.
class Keeper {
public:
    using Clock = ChangeSource::Clock;

    Keeper(std::vector<std::string> words, const RunOptions& options, Key key)
        : m_program(std::move(words)),
          m_options(options),
          m_known(std::move(key)),
          m_wanted(m_known),
          m_environment(environmentOf(m_wanted, options.prefix)) {}

    // Until the program ends by itself. @return its exit code
    int run(ChangeSource& source, KeyReader& reader);

private:
    void start();
    void look(KeyReader& reader, bool isSlowPoll);
    bool isDue() const;
    Clock::time_point nextAct() const;
    Clock::duration grace() const;
    void takeSignals();
    void noteRequest(bool isFinal);
    void act();
    void tell();
    void killWhenDue();
    void noteEnd(int code);
    Clock::time_point deadline(Clock::time_point nextPoll) const;

    Program m_program;
    const RunOptions& m_options;
    SignalInbox m_inbox;
    Key m_known;                             // as the store has it
    Key m_wanted;                            // the same, unless that makes no environment
    Key m_started;                           // as the program has it
    std::vector<std::string> m_environment;  // of what is wanted
    bool m_isSignalDue = false;
    Clock::time_point m_told;  // when the program last got news: its start, or a signal
    std::optional<Clock::time_point> m_killTime;  // while it is being stopped
    // Somebody has asked for the end, and it is not clear before then that it is not to come.
    std::optional<Clock::time_point> m_endUntil;
    std::optional<int> m_exitCode;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_KEEPER_H
