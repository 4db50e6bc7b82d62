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

    // False when it had ended before.
    static bool stop(pid_t pid) {
        if (pid <= 0 || ::kill(pid, SIGSTOP) != 0) {
            return false;
        }
        std::string state;
        return vqtest::waitUntil([&] {
                   state = statusOf(pid, "State");
                   return state.empty() || state == "T" || state == "Z";
               }) &&
               state == "T";
    }

    // Begins the edit that has been typed, and stops its process once it writes the file; 0 when it
    // was faster, and has made the edit.
    pid_t stopWhileWriting(Browsing& browse) const {
        const VQRegLib::CFileDescriptor news(::inotify_init1(IN_CLOEXEC));
        ::inotify_add_watch(news.get(), file.directory().c_str(), IN_CREATE);
        browse.type(kEnter);
        pollfd created{news.get(), POLLIN, 0};
        EXPECT_EQ(1, ::poll(&created, 1, 20000));
        const pid_t writer = browse.writer();
        if (stop(writer)) {
            return writer;
        }
        browse.expect("done: set");
        return 0;
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
    const pid_t writer = browse.writer();
    ASSERT_GT(writer, 0);
    ASSERT_EQ(0, ::kill(writer, SIGKILL));
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
    for (int number = 0; number < 60000; ++number) {
        text +=
            "\"v" + std::to_string(1000000 + number) + "\"=string:" + std::string(60, 'x') + "\n";
    }
    file.write(text);
    const std::size_t files = filesInDirectory();
    Browsing browse = start();
    browse.type("\t");
    pid_t writer = 0;
    std::string end = "x";
    for (int attempt = 0; writer == 0 && attempt < 60; ++attempt) {
        browse.type("e!");
        browse.expect(end += '!');
        writer = stopWhileWriting(browse);
    }
    ASSERT_GT(writer, 0);
    browse.type(kEscape);
    EXPECT_TRUE(vqtest::waitUntil([&] { return isPending(writer, SIGTERM); }));
    ASSERT_EQ(0, ::kill(writer, SIGCONT));
    browse.expect("done: set");
    EXPECT_LE(filesInDirectory(), files + 1);  // the backup
}
