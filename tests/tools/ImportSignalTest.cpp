// Ctrl-C while vqreg import is at work.
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include <csignal>
#include <string>

#include "support/SteppedChild.h"
#include "support/TempStore.h"
#include "support/Wait.h"
#include "tools/VqregProcess.h"

using vqtest::CommandResult;
using vqtest::runVqreg;
using vqtest::TempStore;

namespace {

const std::string kText = "[Velquist]\n\"Keep\"=string:x\n";

// A text with so many values, so that there is work to do.
std::string valuesText(int count) {
    std::string text = "[Velquist]\n";
    for (int i = 0; i < count; ++i) {
        text += "\"v" + std::to_string(i) + "\"=dword:00000001\n";
    }
    return text;
}

// True while a process takes SIGINT itself, which the command does while it makes its changes.
bool catchesInterrupts(pid_t pid) {
    const std::string status = vqtest::readFile("/proc/" + std::to_string(pid) + "/status");
    const std::size_t at = status.find("SigCgt:");
    return at != std::string::npos &&
           (std::stoull(status.substr(at + 7), nullptr, 16) >> (SIGINT - 1) & 1) != 0;
}

// Interrupts an import as soon as it catches that. It is led there from system call to system call, so
// that nobody comes too late: the changes take no time.
bool interruptChanges(vqtest::VqregProcess& process, const std::string& input) {
    const pid_t pid = process.pid();
    if (::ptrace(PTRACE_SEIZE, pid, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) != 0) {
        return false;
    }
    ::ptrace(PTRACE_INTERRUPT, pid, nullptr, nullptr);
    process.give(input);
    int status = 0;
    while (::waitpid(pid, &status, 0) == pid && WIFSTOPPED(status)) {
        if (catchesInterrupts(pid)) {
            process.signal(SIGINT);
            return ::ptrace(PTRACE_DETACH, pid, nullptr, nullptr) == 0;
        }
        ::ptrace(PTRACE_SYSCALL, pid, nullptr, nullptr);
    }
    return false;
}

}  // namespace

TEST(ImportSignalTest, ComesTooLateAfterTheWrite) {
    TempStore store;
    store.write(kText);
    const ino_t before = store.inode();
    TempStore texts;
    texts.write(valuesText(50000));
    vqtest::VqregProcess process({"--file", store.path(), "import", texts.path()});
    ASSERT_TRUE(vqtest::waitUntil([&] { return store.exists() && store.inode() != before; }));
    process.signal(SIGINT);
    EXPECT_EQ((CommandResult{0, "", ""}), process.finish());
}

// A script's background process ignores Ctrl-C.
TEST(ImportSignalTest, LeavesAnIgnoredSignalIgnored) {
    TempStore store;
    TempStore texts;
    texts.write(valuesText(20000));
    const std::string script = "trap '' INT; " VQREG_COMMAND_PATH " --file " + store.path() +
                               " import " + texts.path() +
                               " & while kill -INT $! 2>/dev/null; do :; done; wait $!";
    EXPECT_EQ((CommandResult{0, "", ""}), vqtest::ChildProcess("/bin/sh", {"-c", script}).finish());
}

TEST(ImportSignalTest, LeavesTheStoreAsItWas) {
    if (!vqtest::SteppedChild::isPermitted()) {
        GTEST_SKIP() << "a process may not trace its child here";
    }
    TempStore store;
    store.write(kText);
    vqtest::VqregProcess process({"--file", store.path(), "import", "-"});
    ASSERT_TRUE(interruptChanges(process, valuesText(100)));
    EXPECT_EQ((CommandResult{-SIGINT, "", "vqreg: interrupted; nothing has been changed\n"}),
              process.finish());
    EXPECT_EQ(kText, store.read());
    // The next process gets the lock.
    EXPECT_EQ((CommandResult{0, "", ""}),
              runVqreg({"--file", store.path(), "import", "-"}, "[Velquist]\n\"New\"=string:y\n"));
    EXPECT_EQ(kText + "\"New\"=string:y\n", store.read());
}
