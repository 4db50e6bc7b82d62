// The process in which "vqreg browse" makes its edits.
#include <sys/resource.h>

#include <csignal>
#include <filesystem>

#include "browse/BrowseStore.h"
#include "support/Wait.h"

using namespace vqtest::browse;
using VQRegLib::CRegLib;
using vqtest::prints;

constexpr Size kWide{.rows = 14, .columns = 160};

class BrowseWriter : public BrowseTest {
protected:
    std::vector<std::string> filesBesides() const {
        std::vector<std::string> names;
        for (const auto& each : std::filesystem::directory_iterator(file.directory())) {
            const std::string name = each.path();
            if (name.starts_with(file.path()) && name != file.path() && !name.ends_with(".bak")) {
                names.push_back(name);
            }
        }
        return names;
    }
};

TEST_F(BrowseWriter, IsNoOpenerOfItsOwnStore) {
    CRegLib holder(file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    ASSERT_GE(holder.VQRegBeginUpdate(), 0);
    Browsing browse = start({"Network"}, kWide);
    browse.type("\te!\r");
    browse.expect("waiting for the lock");
    const std::string self = std::to_string(::getpid()) + " (browse)";
    browse.expect("for 3 s | open in: " + self + "}");
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

TEST_F(BrowseWriter, IsNotEndedInTheMiddleOfItsFile) {
    std::string text = "[Velquist]\n";
    for (int number = 0; number < 300000; ++number) {
        text +=
            "\"v" + std::to_string(1000000 + number) + "\"=string:" + std::string(40, 'x') + "\n";
    }
    file.write(text);
    Browsing browse = start();
    browse.type("\te!\r");
    ASSERT_TRUE(vqtest::waitUntil([&] { return !filesBesides().empty(); }));
    browse.type(kEscape);
    browse.expect("done: set");
    EXPECT_THAT(filesBesides(), testing::IsEmpty());
}
