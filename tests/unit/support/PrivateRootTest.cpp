// The tests run in a private root themselves; a second one is made within it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/TraceLog.h"

namespace fs = std::filesystem;

namespace {

// A fresh private root, as the variable that says otherwise is not passed on.
int runInFreshRoot(const std::string& script) {
    const std::string command = "unset VQREG_PRIVATE_ROOT; exec '" +
                                std::string(VQREG_PRIVATE_ROOT_PATH) + "' /bin/sh -c '" + script +
                                "'";
    return std::system(command.c_str());
}

int exitStatus(int waitStatus) {
    return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1;
}

}  // namespace

TEST(PrivateRoot, IsWhereTestsRun) {
    EXPECT_TRUE(vqtest::inPrivateRoot());
}

TEST(PrivateRoot, HidesThePrivatePlaces) {
    EXPECT_FALSE(fs::exists("/etc/Velquist.cfg"));
    EXPECT_FALSE(fs::exists("/velquist"));
    EXPECT_FALSE(fs::exists("/cf"));
    EXPECT_TRUE(fs::is_empty("/dev/shm"));
}

TEST(PrivateRoot, LetsThePrivatePlacesBeUsed) {
    for (const char* directory : {"/velquist/etc", "/cf/corvanedata/Logs"}) {
        EXPECT_TRUE(fs::create_directories(directory));
    }
    for (const char* path : {"/etc/Velquist.cfg", "/dev/shm/x", "/tmp/x"}) {
        std::ofstream out(path);
        EXPECT_TRUE(out << "x" << std::flush) << path;
    }
    struct stat status {};
    for (const char* directory : {"/tmp", "/dev/shm"}) {
        EXPECT_EQ(::stat(directory, &status), 0);
        EXPECT_EQ(status.st_mode & 07777u, 01777u) << directory;
    }
}

TEST(PrivateRoot, KeepsTheRestOfTheMachine) {
    EXPECT_TRUE(fs::exists("/etc/passwd"));
    EXPECT_TRUE(fs::exists("/usr/bin"));
    EXPECT_TRUE(fs::exists("/dev/null"));
    EXPECT_TRUE(fs::exists("/proc/self/status"));
    EXPECT_EQ(::access(VQREG_PRIVATE_ROOT_PATH, X_OK), 0);
}

TEST(PrivateRoot, LetsNothingOut) {
    ASSERT_EQ(exitStatus(runInFreshRoot("echo x > /etc/Velquist.cfg && echo x > /dev/shm/x && "
                                        "echo x > /tmp/x && echo x >> /etc/passwd && "
                                        "mkdir /velquist /cf")),
              0);
    EXPECT_FALSE(fs::exists("/etc/Velquist.cfg"));
    EXPECT_FALSE(fs::exists("/dev/shm/x"));
    EXPECT_FALSE(fs::exists("/tmp/x"));
    EXPECT_FALSE(fs::exists("/velquist"));
    EXPECT_FALSE(fs::exists("/cf"));
    EXPECT_EQ(exitStatus(runInFreshRoot("test ! -e /velquist -a ! -e /dev/shm/x")), 0);
}

TEST(PrivateRoot, LetsNothingIn) {
    fs::create_directories("/velquist/etc");
    fs::create_directories("/cf");
    std::ofstream("/etc/Velquist.cfg") << "x";
    std::ofstream("/dev/shm/x") << "x";
    EXPECT_EQ(exitStatus(runInFreshRoot("test ! -e /velquist -a ! -e /cf -a ! -e /dev/shm/x "
                                        "-a ! -e /etc/Velquist.cfg")),
              0);
}

TEST(PrivateRoot, KeepsTheWorkingDirectory) {
    EXPECT_EQ(exitStatus(runInFreshRoot("test \"$PWD\" -ef " + fs::current_path().string())), 0);
    fs::create_directory("/tmp/kept");
    fs::current_path("/tmp/kept");
    std::ofstream("mark") << "x";
    EXPECT_EQ(exitStatus(runInFreshRoot("test -e mark -a -e /tmp/kept/mark")), 0);
}

TEST(PrivateRoot, EndsAsTheProgramDoes) {
    EXPECT_EQ(exitStatus(runInFreshRoot("exit 3")), 3);
    const int status = runInFreshRoot("kill -KILL $$");
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
}

TEST(PrivateRoot, TellsTheProgramWhereItIs) {
    EXPECT_EQ(exitStatus(runInFreshRoot("test \"$VQREG_PRIVATE_ROOT\" = 1")), 0);
}

TEST(PrivateRoot, IsNotMadeTwice) {
    std::ofstream("/etc/Velquist.cfg") << "x";
    const std::string command = std::string(VQREG_PRIVATE_ROOT_PATH) + " test -e /etc/Velquist.cfg";
    EXPECT_EQ(exitStatus(std::system(command.c_str())), 0);
}

TEST(PrivateRoot, ReportsAProgramThatCannotBeRun) {
    const std::string command = std::string(VQREG_PRIVATE_ROOT_PATH) + " /nowhere 2>&-";
    EXPECT_EQ(exitStatus(std::system(command.c_str())), 127);
}

TEST(PrivateRoot, KeepsSystemVMemoryToItself) {
    const int id = ::shmget(IPC_PRIVATE, 1, IPC_CREAT | 0600);
    ASSERT_GE(id, 0);
    EXPECT_EQ(exitStatus(runInFreshRoot("test $(wc -l < /proc/sysvipc/shm) = 1")), 0);
    EXPECT_EQ(::shmctl(id, IPC_RMID, nullptr), 0);
}
