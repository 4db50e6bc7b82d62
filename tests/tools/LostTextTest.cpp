// The commands that change a store, where its text is in the backup only.
#include <sys/shm.h>

#include <cstdint>
#include <filesystem>
#include <fstream>

#include "support/Agent.h"
#include "tools/VqregStore.h"

using vqtest::Arguments;
using vqtest::fails;
using vqtest::prints;

namespace {

const std::string kBackup = "[Velquist]\n\"V\"=string:the only text\n";
const std::string kOther = "[Velquist]\n\"W\"=string:x\n";

}  // namespace

class LostText : public vqtest::VqregStore {
protected:
    LostText() { std::ofstream(file.backupPath()) << kBackup; }

    static std::string refusal(const std::string& state) {
        return "the file is " + state +
               " and its backup is not; \"vqreg restore\" brings the text back; removing the "
               "backup makes room for a new store";
    }

    struct Order {
        Arguments arguments;
        std::string input;
    };

    void expectRefusals(const std::string& state) const {
        const Order orders[] = {{{"set", "K", "V", "1"}, ""},
                                {{"set", "--json", "K", "V", "1"}, ""},
                                {{"incr", "K", "V"}, ""},
                                {{"mkkey", "K"}, ""},
                                {{"batch"}, "set K V 1\n"},
                                {{"import", "-"}, kOther},
                                {{"import", "--replace", "-"}, kOther},
                                {{"apply", "-"}, kOther},
                                {{"edit", "-y"}, ""}};
        const auto files = file.files();
        for (const Order& order : orders) {
            EXPECT_EQ(run(order.arguments, order.input),
                      fails(3, file.path() + ": " + refusal(state)))
                << order.arguments.front();
            EXPECT_EQ(file.readBackup(), kBackup) << order.arguments.front();
            EXPECT_EQ(file.files(), files) << order.arguments.front();
        }
    }
};

TEST_F(LostText, IsNotReplacedByANewStoreWhereTheFileIsMissing) {
    expectRefusals("missing");
    EXPECT_FALSE(file.exists());
    EXPECT_EQ(run({"restore"}).status, 0);
    EXPECT_EQ(file.read(), kBackup);
    make({"set", "K", "V", "1"});
}

TEST_F(LostText, IsNotReplacedByANewStoreWhereTheFileIsEmpty) {
    file.write("");
    expectRefusals("empty");
    EXPECT_EQ(file.read(), "");
    EXPECT_EQ(run({"restore"}).status, 0);
    EXPECT_EQ(file.read(), kBackup);
    make({"set", "K", "V", "1"});
}

TEST_F(LostText, OfTheDefaultStoreIsNotReplacedByALook) {
    std::ofstream("/etc/Velquist.cfg.bak") << kBackup;
    for (const Arguments& look : {Arguments{"get", "/", "V"}, {"ls"}, {"rm", "/", "V"}}) {
        EXPECT_EQ(vqtest::runVqreg(look), fails(3, "/etc/Velquist.cfg: " + refusal("missing")));
        EXPECT_FALSE(std::filesystem::exists("/etc/Velquist.cfg"));
        EXPECT_EQ(vqtest::readFile("/etc/Velquist.cfg.bak"), kBackup);
    }
}

TEST_F(LostText, IsNoneWhereTheBackupHasNone) {
    std::ofstream(file.backupPath(), std::ios::trunc).close();
    make({"set", "K", "V", "1"});
    EXPECT_EQ(run({"get", "K", "V"}), prints("1\n"));
    std::filesystem::remove(file.path());
    std::filesystem::remove(file.backupPath());
    make({"set", "K", "V", "2"});
    EXPECT_EQ(run({"get", "K", "V"}), prints("2\n"));
}

// As a process leaves it that dies in the middle of a change, where the file system knows no better
// way: the stamp is odd, and the library brings the file back by itself.
TEST_F(LostText, OfAnInterruptedChangeIsLeftToTheLibrary) {
    vqtest::Agent agent(VQREG_AGENT_PATH);
    file.write(kBackup);
    ASSERT_EQ(agent.open(file.path()), 0);
    const std::string record =
        vqtest::readFile("/dev/shm/CPBlock." + vqtest::encodedPath(file.path()));
    std::int64_t id = -1;
    ASSERT_GE(record.size(), 24u);
    record.copy(reinterpret_cast<char*>(&id), sizeof id, 16);
    void* const segment = ::shmat(static_cast<int>(id), nullptr, 0);
    ASSERT_NE(segment, reinterpret_cast<void*>(-1));
    static_cast<std::uint64_t*>(segment)[8] |= 1;
    ::shmdt(segment);
    std::filesystem::remove(file.path());
    EXPECT_EQ(run({"set", "/", "W", "1"}), prints(""));
    EXPECT_EQ(file.read(), "[Velquist]\n\"V\"=string:the only text\n\"W\"=dword:00000001\n");
    std::filesystem::remove(file.path());
    EXPECT_EQ(run({"set", "/", "W", "1"}), fails(3, file.path() + ": " + refusal("missing")));
}
