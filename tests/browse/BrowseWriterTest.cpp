// The process in which "vqreg browse" makes its edits.
#include <poll.h>
#include <sys/inotify.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "browse/BrowseStore.h"
#include "portable/FileDescriptor.h"
#include "support/Wait.h"

using namespace vqtest::browse;
using VQRegLib::CRegLib;
using vqtest::prints;

constexpr Size kWide{.rows = 14, .columns = 160};

class BrowseWriter : public BrowseTest {
protected:
    std::size_t filesInDirectory() const {
        const std::filesystem::directory_iterator files(file.directory());
        return static_cast<std::size_t>(std::distance(begin(files), end(files)));
    }

    static bool isAskedToEnd(pid_t pid) {
        std::ifstream status("/proc/" + std::to_string(pid) + "/status");
        std::string word;
        while (status >> word && word != "ShdPnd:") {
        }
        unsigned long long signals = 0;
        status >> std::hex >> signals;
        return (signals >> (SIGTERM - 1) & 1) != 0;
    }
};

TEST_F(BrowseWriter, IsNoOpenerOfItsOwnStore) {
    CRegLib holder(file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    ASSERT_GE(holder.VQRegBeginUpdate(), 0);
    Browsing browse = start({"Network"}, kWide);
    browse.type("\te!\r");
    browse.expect("waiting for the lock");
    const std::string self = std::to_string(::getpid()) + " (browse)";
    // The processes have been looked for again when the lock has been held longer than the wait.
    const std::string held = "held by process " + self + ", for ";
    EXPECT_TRUE(browse.waitFor([&](const std::string& all) {
        const std::size_t at = all.find(held);
        return at != std::string::npos && std::atoi(all.c_str() + at + held.size()) > 3 &&
               all.find(" s | open in: " + self + "}", at) != std::string::npos;
    })) << browse.text();
    holder.VQRegEndUpdate();
    browse.expect("done: set");
}

TEST_F(BrowseWriter, IsToldToHaveBeenEndedByOthers) {
    CRegLib holder(file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    ASSERT_GE(holder.VQRegBeginUpdate(), 0);
    Browsing browse = start({"Network"}, kWide);
    browse.type("\te!\r");
    browse.expect("writing;");
    ASSERT_EQ(0, ::kill(browse.writer(), SIGKILL));
    browse.expect("the process that writes was ended by signal 9; nothing has been changed");
    holder.VQRegEndUpdate();
    browse.type("e?\r");
    browse.expect("done: set");
    EXPECT_EQ(prints("a.example?\n"), run({"get", "Network", "Host"}));
}

TEST_F(BrowseWriter, IsMissedOnlyWhereTheSystemMakesNone) {
#ifdef VQTEST_SANITIZED
    GTEST_SKIP() << "a sanitizer needs descriptors to look at an exception";
#endif
    Browsing browse = start({"Network"}, kWide);
    browse.expect("Host");
    rlimit before{};
    const pid_t pid = browse.process().pid();
    ASSERT_EQ(0, ::prlimit(pid, RLIMIT_NOFILE, nullptr, &before));
    const rlimit none{3, before.rlim_max};
    ASSERT_EQ(0, ::prlimit(pid, RLIMIT_NOFILE, &none, nullptr));
    browse.type("\te!\r");
    browse.expect("a pipe: Too many open files");
    ASSERT_EQ(0, ::prlimit(pid, RLIMIT_NOFILE, &before, nullptr));
    browse.type("e?\r");
    browse.expect("done: set");
    EXPECT_EQ(prints("a.example?\n"), run({"get", "Network", "Host"}));
}

// A file that is written in part would stay beside the store's.
TEST_F(BrowseWriter, IsNotEndedWhileItWritesTheFile) {
    std::string text = "[Velquist]\n";
    for (int number = 0; number < 200000; ++number) {
        text +=
            "\"v" + std::to_string(1000000 + number) + "\"=string:" + std::string(60, 'x') + "\n";
    }
    file.write(text);
    const std::size_t files = filesInDirectory();
    Browsing browse = start();
    browse.type("\te!");
    browse.expect("x!");
    const VQRegLib::CFileDescriptor news(::inotify_init1(IN_CLOEXEC));
    ASSERT_GE(::inotify_add_watch(news.get(), file.directory().c_str(), IN_CREATE), 0);
    browse.type("\r");
    pollfd created{news.get(), POLLIN, 0};
    ASSERT_EQ(1, ::poll(&created, 1, 20000));
    const pid_t writer = browse.writer();
    ASSERT_EQ(0, ::kill(writer, SIGSTOP));
    browse.type(kEscape);
    EXPECT_TRUE(vqtest::waitUntil([&] { return isAskedToEnd(writer); }));
    ASSERT_EQ(0, ::kill(writer, SIGCONT));
    browse.expect("done: set");
    EXPECT_LE(filesInDirectory(), files + 1);  // the backup
}
