// Each exit code of vqreg, and the words that go with it.
#include <VQRegLib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "support/ChildLife.h"
#include "support/OtherUser.h"
#include "support/ReadOnlyDirectory.h"
#include "tools/TerminalProcess.h"
#include "tools/VqregStore.h"

using vqtest::Arguments;
using vqtest::fails;
using vqtest::prints;
using vqtest::ReadOnlyDirectory;

class ExitCode : public vqtest::VqregStore {
protected:
    static constexpr const char* kText = "[Velquist]\n\"V\"=string:x\n";

    std::string directoryWith(const std::string& path) const { return file.directory() + path; }
};

namespace {

// A process that keeps the lock of a store until the object goes.
class LockHolder {
public:
    explicit LockHolder(const std::string& file) {
        const pid_t parent = ::getpid();
        int ready[2];
        if (::pipe(ready) != 0 || (m_pid = ::fork()) < 0) {
            throw std::system_error(errno, std::generic_category(), "fork");
        }
        if (m_pid == 0) {
            vqtest::followParent(parent);
            VQRegLib::CRegLib session(file.c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                                      nullptr);
            const char byte = session.VQRegBeginUpdate() < 0 ? 'n' : 'y';
            [[maybe_unused]] const ssize_t written = ::write(ready[1], &byte, 1);
            ::pause();
            ::_exit(0);
        }
        ::close(ready[1]);
        char byte = 'n';
        if (::read(ready[0], &byte, 1) != 1 || byte != 'y') {
            throw std::runtime_error("the lock was not taken");
        }
        ::close(ready[0]);
    }
    ~LockHolder() { end(); }
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;

    pid_t pid() const { return m_pid; }

    void end() {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
            m_pid = -1;
        }
    }

private:
    pid_t m_pid = -1;
};

}  // namespace

TEST_F(ExitCode, Done) {
    file.write(kText);
    EXPECT_EQ(run({"get", "/", "V"}), prints("x\n"));
}

TEST_F(ExitCode, NegativeAnswer) {
    file.write(kText);
    EXPECT_EQ(run({"get", "/", "W"}), fails(1, "the root key has no value \"W\""));
}

TEST_F(ExitCode, Usage) {
    EXPECT_EQ(run({"get"}).status, 2);
}

TEST_F(ExitCode, UnavailableBecauseOfTheFile) {
    for (const Arguments& arguments : std::vector<Arguments>{{"get", "/", "V"},
                                                             {"ls"},
                                                             {"tree"},
                                                             {"rm", "/", "V"},
                                                             {"info"},
                                                             {"export"},
                                                             {"cp", "A", "B"}}) {
        EXPECT_EQ(run(arguments), fails(3, file.path() + ": the file does not exist"));
        EXPECT_FALSE(file.exists());
    }
    std::filesystem::create_directory(file.path());
    EXPECT_EQ(run({"ls"}), fails(3, file.path() + ": is a directory, not a file"));
    EXPECT_EQ(run({"set", "K", "V", "1"}), fails(3, file.path() + ": is a directory, not a file"));
    std::filesystem::remove(file.path());
    std::filesystem::create_symlink("nowhere", file.path());
    EXPECT_EQ(run({"ls"}), fails(3, directoryWith("/nowhere") + ": the file does not exist"));
}

TEST_F(ExitCode, UnavailableBecauseOfTheDirectory) {
    const std::string directory = directoryWith("/no");
    const std::string path = directory + "/x.cfg";
    for (const Arguments& arguments :
         std::vector<Arguments>{{"--file", path, "ls"}, {"--file", path, "set", "K", "V", "1"}}) {
        EXPECT_EQ(vqtest::runVqreg(arguments),
                  fails(3, path + ": the directory " + directory + " does not exist"));
    }
    EXPECT_EQ(vqtest::runVqreg({"--file", "/etc/passwd/x.cfg", "ls"}).status, 3);
}

TEST_F(ExitCode, UnavailableBecauseOfPermissions) {
    const std::string path = directoryWith("/mounted");
    const ReadOnlyDirectory directory(path);
    EXPECT_EQ(vqtest::runVqreg({"--file", directory.file(), "set", "K", "V", "1"}),
              fails(3, directory.file() + ": the file does not exist, and the directory " + path +
                           " is on a read-only file system"));
}

TEST_F(ExitCode, UnavailableBecauseOfTheSharedObject) {
    file.write(kText);
    const std::string object = "/dev/shm/CPLock." + vqtest::encodedPath(file.path());
    std::filesystem::create_directory(object);
    const auto result = run({"get", "/", "V"});
    std::filesystem::remove(object);
    EXPECT_EQ(result, fails(3, file.path() + ": the shared object " + object +
                                   " may not be used (owner root, mode 0755)"));
}

TEST_F(ExitCode, Malformed) {
    file.write("[Velquist]\n\"V\"=string:x\n\"W\"=word:1\n");
    for (const Arguments& arguments :
         std::vector<Arguments>{{"get", "/", "V"}, {"set", "/", "V", "1"}, {"ls"}}) {
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 4);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err.rfind("vqreg: " + file.path() + ":3:", 0), 0u) << result.err;
    }
    EXPECT_EQ(run({"info"}).status, 4);
}

TEST_F(ExitCode, WrongKind) {
    file.write("[Velquist]\n[Velquist/K]\n");
    EXPECT_EQ(run({"get", "/", "K"}), fails(5, "\"K\" is a sub key of the root key, not a value"));
}

TEST_F(ExitCode, LockNotObtained) {
    file.write(kText);
    const LockHolder holder(file.path());
    const auto result = run({"--timeout", "0.2", "set", "/", "V", "y"});
    EXPECT_EQ(result.status, 6);
    EXPECT_EQ(result.out, "");
    const std::regex message("vqreg: the lock of " + file.path() +
                             " was not obtained within 0\\.2 s; it is held by process " +
                             std::to_string(holder.pid()) + " \\(.+\\), for \\d+ s\n");
    EXPECT_TRUE(std::regex_match(result.err, message)) << result.err;
    EXPECT_EQ(file.read(), kText);
}

TEST_F(ExitCode, HolderIsNamedWhileTheLockIsWaitedFor) {
    file.write(kText);
    LockHolder holder(file.path());
    // Its messages go to a terminal, where they can be waited for.
    vqtest::TerminalProcess command(VQREG_COMMAND_PATH,
                                    {"--file", file.path(), "set", "/", "V", "y"}, {},
                                    {.in = false, .out = false});
    const std::string told = command.expect(" s\n");
    const std::regex message("vqreg: waiting for the lock of " + file.path() +
                             ", held by process " + std::to_string(holder.pid()) +
                             " \\(.+\\), for \\d+");
    EXPECT_TRUE(std::regex_match(told, message)) << told;
    EXPECT_EQ(file.read(), kText);
    holder.end();
    const auto result = command.finish();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.screen, told + " s\n") << "it is said once";
    EXPECT_EQ(file.read(), "[Velquist]\n\"V\"=string:y\n");
}

TEST_F(ExitCode, HolderIsNamedByInfo) {
    file.write(kText);
    const LockHolder holder(file.path());
    const std::regex line("\nlock           held by process " + std::to_string(holder.pid()) +
                          " \\(.+\\), for \\d+ s\n");
    const auto result = run({"info"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(std::regex_search(result.out, line)) << result.out;
}

TEST_F(ExitCode, WhoOnlyReadsWaitsForNobody) {
    file.write(kText);
    const LockHolder holder(file.path());
    EXPECT_EQ(run({"--timeout", "0.2", "get", "/", "V"}), prints("x\n"));
    EXPECT_EQ(run({"--timeout", "0.2", "ls"}).status, 0);
    EXPECT_EQ(run({"--timeout", "0.2", "tree"}).status, 0);
    EXPECT_EQ(run({"--timeout", "0.2", "export"}), prints(kText));
    EXPECT_EQ(run({"--timeout", "0.2", "set", "/", "V", "y"}).status, 6);
}

// The first session of a process opens the default store too, and writes the trace level there when
// it is missing.
TEST_F(ExitCode, LockOfTheDefaultStoreCountsToo) {
    file.write(kText);
    const LockHolder holder("/etc/Velquist.cfg");
    std::ofstream("/etc/Velquist.cfg") << "[Velquist]\n";
    const auto result = run({"--timeout", "0.2", "get", "/", "V"});
    EXPECT_EQ(result.status, 6);
    EXPECT_NE(result.err.find("the lock of /etc/Velquist.cfg"), std::string::npos) << result.err;
}
