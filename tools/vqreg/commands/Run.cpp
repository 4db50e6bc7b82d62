// vqreg run: a program with the values of a key as its environment.
#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <utility>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/Program.h"
#include "tools/vqreg/base/SignalInbox.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/ChangeSource.h"
#include "tools/vqreg/store/KeyReader.h"
#include "tools/vqreg/store/StoreSession.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/Difference.h"
#include "tools/vqreg/text/Environment.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/usage/Usage.h"

namespace vqreg {

namespace {

// However fast the values change, a program runs for so long before it is started again.
constexpr auto kShortestRun = std::chrono::seconds(1);

struct RunOptions {
    std::string key;
    std::string prefix;
    std::string signal;
    bool restart = false;
    double graceSeconds = 10;
};

std::vector<std::string> environmentOf(const Key& key, const std::string& prefix) {
    std::vector<std::string> texts;
    for (const Variable& variable : variablesOf(key, prefix)) {
        texts.push_back(variable.name + '=' + variable.text);
    }
    return texts;
}

bool hasSameValues(const Key& one, const Key& other) {
    return std::ranges::equal(one.values, other.values, [](const auto& left, const auto& right) {
        return left.first == right.first && left.second.sameData(right.second);
    });
}

// Looks after a program while the values of its key change.
class Keeper {
public:
    using Clock = std::chrono::steady_clock;

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
    bool isDue() const { return m_options.restart && !hasSameValues(m_wanted, m_started); }
    void takeSignals();
    void stopWhenDue();
    void noteEnd(int code);
    std::chrono::milliseconds patience() const;

    Program m_program;
    const RunOptions& m_options;
    SignalInbox m_inbox;
    Key m_known;                             // as the store has it
    Key m_wanted;                            // the same, unless that makes no environment
    Key m_started;                           // as the program has it
    std::vector<std::string> m_environment;  // of what is wanted
    Clock::time_point m_start;
    std::optional<Clock::time_point> m_killTime;  // while it is being stopped
    bool m_isToEnd = false;  // somebody has asked for that while it is being stopped
    std::optional<int> m_exitCode;
};

int Keeper::run(ChangeSource& source, KeyReader& reader) {
    start();
    look(reader, false);
    while (!m_exitCode) {
        const auto news = source.descriptors();
        pollfd sources[] = {{m_inbox.descriptor(), POLLIN, 0}, news[0], news[1]};
        const int count = ::poll(sources, std::size(sources), static_cast<int>(patience().count()));
        takeSignals();
        if (m_exitCode) {
            break;
        }
        const bool isTold = count > 0 && (sources[1].revents != 0 || sources[2].revents != 0);
        if (isTold || count == 0) {
            source.drain();
            look(reader, !isTold);
        }
        stopWhenDue();
    }
    return *m_exitCode;
}

void Keeper::start() {
    m_program.start(m_environment, m_inbox.maskBefore());
    m_started = m_wanted;
    m_start = Clock::now();
    m_killTime.reset();
}

void Keeper::look(KeyReader& reader, bool isSlowPoll) {
    std::optional<Key> now = reader.read(isSlowPoll);
    // Nobody deletes settings by losing the file. It comes back, or is brought back.
    if (!now || reader.isFileLost() || hasSameValues(*now, m_known)) {
        return;
    }
    m_known = std::move(*now);
    if (!m_options.restart) {
        m_program.signal(*signalNumber(m_options.signal));
        return;
    }
    try {
        m_environment = environmentOf(m_known, m_options.prefix);
        m_wanted = m_known;
    } catch (const CommandError& error) {
        note(fmt::format("{}; {} goes on as it is", error.what(), m_program.name()));
    }
}

void Keeper::takeSignals() {
    while (const auto letter = m_inbox.next()) {
        if (letter->signal == SIGCHLD) {
            if (const auto code = m_program.reap()) {
                noteEnd(*code);
            }
            continue;
        }
        const bool endsMost = letter->signal == SIGTERM || letter->signal == SIGINT ||
                              letter->signal == SIGQUIT || letter->signal == SIGHUP;
        m_isToEnd = m_isToEnd || (endsMost && m_killTime);
        if (!letter->isFromKernel) {
            m_program.signal(letter->signal);
        }
    }
}

void Keeper::noteEnd(int code) {
    if (m_killTime && !m_isToEnd) {
        start();
    } else {
        m_exitCode = code;
    }
}

void Keeper::stopWhenDue() {
    const auto now = Clock::now();
    if (m_killTime) {
        if (now >= *m_killTime) {
            note(fmt::format("{} has not ended {} s after SIGTERM, and is killed", m_program.name(),
                             m_options.graceSeconds));
            m_program.signal(SIGKILL);
            *m_killTime = Clock::time_point::max();
        }
    } else if (isDue() && now >= m_start + kShortestRun) {
        m_isToEnd = false;
        m_killTime = now + std::chrono::duration_cast<Clock::duration>(
                               std::chrono::duration<double>(m_options.graceSeconds));
        m_program.signal(SIGTERM);
        m_program.signal(SIGCONT);  // one that is stopped would not see it
    }
}

// How long nothing is to be done but what comes in.
std::chrono::milliseconds Keeper::patience() const {
    auto until = Clock::now() + kSlowPoll;
    if (m_killTime) {
        until = std::min(until, *m_killTime);
    } else if (isDue()) {
        until = std::min(until, m_start + kShortestRun);
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
    return std::chrono::milliseconds(std::max<long long>(left + 1, 0));
}

void runProgram(Context& context, const RunOptions& options) {
    if (context.program.empty()) {
        throw CommandError(eExit::eUsage, "COMMAND is required behind \"--\"");
    }
    if (!options.restart && options.signal.empty()) {
        std::vector<std::string> variables;
        {
            StoreSession store(context.store);
            variables = environmentOf(store.loadValues(splitPath(options.key)), options.prefix);
        }
        Program(context.program).become(variables);
    }
    StoreSession store(context.store);
    const Path path = store.tidied(splitPath(options.key));
    // First of all: what happens from here on is told or read.
    ChangeSource source(store.session(), storeFile(context.store));
    KeyReader reader(context.store, path);
    Keeper keeper(context.program, options, store.loadValues(path));
    context.exitCode = keeper.run(source, reader);
}

CLI::Validator signalRule() {
    return CLI::Validator(
        [](const std::string& text) {
            return signalNumber(text) ? ""
                                      : "must be a signal such as HUP or 1, not \"" + text + '"';
        },
        "");
}

}  // namespace

void defineRun(CLI::App& command, Context& context) {
    const auto options = std::make_shared<RunOptions>();
    CLI::Option* const restart =
        command.add_flag("--restart", options->restart,
                         "Stop it when the values of KEY have changed, and start it again");
    command
        .add_option("--signal", options->signal, "Send it a signal when they have changed, as HUP")
        ->type_name("NAME")
        ->check(signalRule())
        ->excludes(restart);
    command
        .add_option("--grace", options->graceSeconds,
                    "Seconds after SIGTERM until it is killed (default: 10)")
        ->type_name("S")
        ->check(secondsRule())
        ->needs(restart);
    addPrefixOption(command, options->prefix);
    command.add_option("KEY", options->key, "The key whose values are its environment")
        ->required()
        ->type_name("");
    setUsage(command,
             "run [--restart] [--signal NAME] [--grace S] [--prefix P] KEY -- COMMAND "
             "[ARGUMENT...]");
    command.footer(
        "The variables are those of \"vqreg export --env\"; sub keys are not looked at. Without\n"
        "--restart and --signal, COMMAND takes the place of vqreg. Otherwise signals are passed "
        "on,\n"
        "it dies with vqreg, and its exit code, or 128 and the number of its signal, is vqreg's.");
    command.callback([&context, options] { runProgram(context, *options); });
}

}  // namespace vqreg
