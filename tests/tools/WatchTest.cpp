// vqreg watch.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "portable/FileDescriptor.h"
#include "support/TempStore.h"
#include "support/Untold.h"
#include "support/Wait.h"
#include "tools/VqregProcess.h"

using vqtest::CommandResult;
using vqtest::runVqreg;
using vqtest::TempStore;
using vqtest::VqregProcess;

namespace {

const std::string kText =
    "[Velquist]\n"
    "\"Port\"=dword:00000050\n"
    "[Velquist/Sub]\n"
    "\"a\"=string:b\n";

class WatchTest : public testing::Test {
protected:
    WatchTest() { store.write(kText); }

    std::vector<std::string> watching(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--file", store.path(), "watch", "--initial"});
        return arguments;
    }

    int change(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--file", store.path(), "--no-notify"});
        return runVqreg(arguments).status;
    }

    // Another file in the place of the store's. Written in place, it would be empty for a moment.
    void replace(const std::string& text) const {
        const std::string other = store.path() + ".other";
        std::ofstream(other) << text;
        std::filesystem::rename(other, store.path());
    }

    TempStore store;
};

}  // namespace

TEST_F(WatchTest, PrintsEachChange) {
    VqregProcess watch(watching({}));
    // From here on nothing is missed.
    EXPECT_EQ("+ [Velquist] \"Port\"=dword:00000050", watch.line());
    EXPECT_EQ("+ [Velquist/Sub]", watch.line());
    EXPECT_EQ("+ [Velquist/Sub] \"a\"=string:b", watch.line());
    ASSERT_EQ(0, change({"set", "/", "Port", "-t", "dword", "8080"}));
    EXPECT_EQ("~ [Velquist] \"Port\"=dword:00000050 -> dword:00001F90", watch.line());
    ASSERT_EQ(0, change({"set", "Sub", "c", "-t", "string", "x"}));
    EXPECT_EQ("+ [Velquist/Sub] \"c\"=string:x", watch.line());
    ASSERT_EQ(0, change({"rm", "-f", "Sub", "a"}));
    EXPECT_EQ("- [Velquist/Sub] \"a\"=string:b", watch.line());
    ASSERT_EQ(0, change({"mkkey", "New"}));
    EXPECT_EQ("+ [Velquist/New]", watch.line());
    ASSERT_EQ(0, change({"rm", "-f", "-r", "Sub"}));
    EXPECT_EQ("- [Velquist/Sub]", watch.line());
    EXPECT_EQ("- [Velquist/Sub] \"c\"=string:x", watch.line());
    watch.signal(SIGTERM);
    EXPECT_EQ((CommandResult{0, "", ""}), watch.finish());
}

TEST_F(WatchTest, WaitsForNobodyWhoHasToWriteIntoAPipe) {
    VqregProcess watch(watching({}));
    EXPECT_EQ("+ [Velquist] \"Port\"=dword:00000050", watch.line());
    EXPECT_EQ("+ [Velquist/Sub]", watch.line());
    EXPECT_EQ("+ [Velquist/Sub] \"a\"=string:b", watch.line());
    const std::string pipe = store.path() + ".pipe";
    ASSERT_EQ(0, ::mkfifo(pipe.c_str(), 0600));
    std::filesystem::rename(pipe, store.path());
    // It can be opened for writing only while somebody has it for reading.
    EXPECT_FALSE(vqtest::waitUntil(
        [&] {
            return VQRegLib::CFileDescriptor(
                       ::open(store.path().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC))
                .isOpen();
        },
        std::chrono::milliseconds(1500)));
    replace("[Velquist]\n\"Port\"=dword:00000051\n[Velquist/Sub]\n\"a\"=string:b\n");
    EXPECT_EQ("~ [Velquist] \"Port\"=dword:00000050 -> dword:00000051", watch.line());
    watch.signal(SIGTERM);
    EXPECT_EQ((CommandResult{0, "", ""}), watch.finish());
}

TEST_F(WatchTest, WatchesOneKeyAndPrintsJson) {
    VqregProcess watch(watching({"--json", "Sub"}));
    EXPECT_EQ(
        "{\"event\":\"created\",\"key\":\"Sub\",\"name\":\"a\",\"new\":{\"type\":\"string\","
        "\"value\":\"b\"}}",
        watch.line());
    ASSERT_EQ(0, change({"set", "/", "Port", "-t", "dword", "1"}));
    ASSERT_EQ(0, change({"set", "Sub", "a", "-t", "string", "c"}));
    EXPECT_EQ(
        "{\"event\":\"changed\",\"key\":\"Sub\",\"name\":\"a\",\"old\":{\"type\":\"string\","
        "\"value\":\"b\"},\"new\":{\"type\":\"string\",\"value\":\"c\"}}",
        watch.line());
    watch.signal(SIGINT);
    EXPECT_EQ((CommandResult{0, "", ""}), watch.finish());
}

TEST_F(WatchTest, SeesTheFileWrittenByHand) {
    VqregProcess watch(watching({"Sub"}));
    EXPECT_EQ("+ [Velquist/Sub] \"a\"=string:b", watch.line());
    replace("[Velquist]\n[Velquist/Sub]\n\"a\"=string:by hand\n");
    EXPECT_EQ("~ [Velquist/Sub] \"a\"=string:b -> string:by hand", watch.line());
}

TEST_F(WatchTest, GoesOnAfterAMalformedFile) {
    VqregProcess watch(watching({"Sub"}));
    EXPECT_EQ("+ [Velquist/Sub] \"a\"=string:b", watch.line());
    replace("bad");
    replace("[Velquist]\n[Velquist/Sub]\n\"a\"=string:c\n");
    EXPECT_EQ("~ [Velquist/Sub] \"a\"=string:b -> string:c", watch.line());
}

TEST_F(WatchTest, ShowsARemovedFileAsEmpty) {
    VqregProcess watch(watching({"Sub"}));
    EXPECT_EQ("+ [Velquist/Sub] \"a\"=string:b", watch.line());
    ASSERT_EQ(0, ::unlink(store.path().c_str()));
    EXPECT_EQ("- [Velquist/Sub] \"a\"=string:b", watch.line());
}

TEST_F(WatchTest, SeesChangesWhereTheSystemTellsOfNone) {
    if (!vqtest::mayRunUntold()) {
        GTEST_SKIP() << "no namespaces of users can be made here";
    }
    std::vector<std::string> arguments = vqtest::untold(VQREG_COMMAND_PATH);
    for (const std::string& word : watching({"Sub"})) {
        arguments.push_back(word);
    }
    vqtest::ChildProcess watch(vqtest::kUntold, arguments);
    EXPECT_EQ("+ [Velquist/Sub] \"a\"=string:b", watch.line());
    ASSERT_EQ(0, change({"set", "Sub", "a", "-t", "string", "c"}));
    EXPECT_EQ("~ [Velquist/Sub] \"a\"=string:b -> string:c", watch.line());
}

// It never writes, so it brings nothing back.
TEST_F(WatchTest, NobodyIsWarnedOfIt) {
    VqregProcess watch(watching({"Sub"}));
    EXPECT_EQ("+ [Velquist/Sub] \"a\"=string:b", watch.line());
    EXPECT_EQ(runVqreg({"--file", store.path(), "rm", "-f", "Sub", "a"}),
              (CommandResult{0, "", ""}));
    EXPECT_EQ("- [Velquist/Sub] \"a\"=string:b", watch.line());
}

TEST_F(WatchTest, EndsQuietlyWhenNobodyReads) {
    VqregProcess watch(watching({"Sub"}));
    EXPECT_EQ("+ [Velquist/Sub] \"a\"=string:b", watch.line());
    watch.closeOutput();
    EXPECT_EQ((CommandResult{0, "", ""}), watch.finish());
}

TEST_F(WatchTest, NeedsAStore) {
    TempStore other;
    EXPECT_EQ(3, runVqreg({"--file", other.directory() + "/missing/a.cfg", "watch"}).status);
}

TEST_F(WatchTest, SaysOnceThatTheKeyDoesNotExist) {
    std::vector<std::string> arguments = watching({"New"});
    arguments.insert(arguments.begin(), {"-c", R"(exec "$0" "$@" 2>&1)", VQREG_COMMAND_PATH});
    vqtest::ChildProcess watch("/bin/sh", arguments);
    EXPECT_EQ("vqreg: the key \"New\" does not exist yet", watch.line());
    ASSERT_EQ(0, change({"set", "New", "v", "-t", "string", "x"}));
    EXPECT_EQ("+ [Velquist/New] \"v\"=string:x", watch.line());
    ASSERT_EQ(0, change({"rm", "-r", "-f", "New"}));
    EXPECT_EQ("- [Velquist/New] \"v\"=string:x", watch.line());
    watch.signal(SIGTERM);
    EXPECT_EQ((CommandResult{0, "", ""}), watch.finish());
}

TEST_F(WatchTest, CountsKeysInJsonFromTheRootKey) {
    VqregProcess watch(watching({"--json"}));
    EXPECT_EQ(
        "{\"event\":\"created\",\"key\":\"\",\"name\":\"Port\",\"new\":{\"type\":\"dword\","
        "\"value\":80}}",
        watch.line());
    EXPECT_EQ("{\"event\":\"created\",\"key\":\"Sub\"}", watch.line());
}
