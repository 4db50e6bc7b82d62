// A key whose values are the environment of a program.
#ifndef VQTEST_RUN_STORE_H
#define VQTEST_RUN_STORE_H

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "support/Wait.h"
#include "tools/VqregStore.h"

namespace vqtest {

/// Tells each start and does what it is told by signals, until it is told to end. The shell is busy for a
/// moment only, so that no signal waits for long.
inline const std::string kService =
    "trap 'echo hup' HUP; trap 'echo usr1' USR1; trap 'echo int' INT; trap 'echo term; exit 9' "
    "TERM\n"
    "echo start ${PORT-none}\n"
    "while :; do sleep 0.02; done";

class RunStore : public VqregStore {
protected:
    RunStore() { make({"set", "App", "Port", "80"}); }

    Arguments running(const Arguments& options, const Arguments& program) const {
        Arguments all = {"--file", file.path(), "run"};
        all.insert(all.end(), options.begin(), options.end());
        all.insert(all.end(), {"App", "--"});
        all.insert(all.end(), program.begin(), program.end());
        return all;
    }
    Arguments service(const Arguments& options, const std::string& script = kService) const {
        return running(options, {"/bin/sh", "-c", script, endPath()});
    }
    /// What the script has as $0: it may wait until there is such a file.
    std::string endPath() const { return file.directory() + "/end"; }
    CommandResult finished(const Arguments& options, const Arguments& program) const {
        return runVqreg(running(options, program));
    }

    void change(const Arguments& arguments) const { EXPECT_EQ(run(arguments).status, 0); }

    /// A number of one of the tables in /proc.
    static long numberOf(pid_t pid, const std::string& table, const std::string& name) {
        std::ifstream in("/proc/" + std::to_string(pid) + '/' + table);
        for (std::string line; std::getline(in, line);) {
            if (line.starts_with(name + ':')) {
                return std::stol(line.substr(name.size() + 1));
            }
        }
        return 0;
    }

    /// Waits until a process has been awake once more, and sleeps again.
    template <typename Action>
    static void andSeenBy(pid_t pid, Action action) {
        const auto turns = [pid] { return numberOf(pid, "status", "voluntary_ctxt_switches"); };
        action();
        const long before = turns();
        // Once for what happens just now, and once more by itself a second later.
        EXPECT_TRUE(waitUntil([&] { return turns() >= before + 2; }));
    }

    /// Waits until a process has read the store's file, which is large enough to be told from the rest
    /// of what it reads.
    template <typename Action>
    void andReadBy(pid_t pid, Action action) const {
        const auto read = [pid] { return numberOf(pid, "io", "rchar"); };
        const long before = read();
        action();
        const long size = static_cast<long>(file.read().size());
        ASSERT_GT(size, 50000);
        EXPECT_TRUE(waitUntil([&] { return read() >= before + size; }));
    }
    void makeLarge() const {
        std::string text = file.read() + "[Velquist/Large]\n";
        for (int i = 0; i < 50; ++i) {
            text += "\"V" + std::to_string(i) + "\"=string:" + std::string(1000, 'x') + '\n';
        }
        file.write(text);
    }

    void replace(const std::string& text) const {
        std::ofstream(file.path() + ".new") << text;
        std::filesystem::rename(file.path() + ".new", file.path());
    }
};

}  // namespace vqtest

#endif  // VQTEST_RUN_STORE_H
