// vqreg notify: what running programs see of a file that was changed by hand.
#include <VQRegLib.h>

#include <filesystem>
#include <fstream>

#include "support/Agent.h"
#include "support/Handlers.h"
#include "support/Wait.h"
#include "tools/VqregStore.h"

using vqtest::Agent;
using vqtest::fails;
using vqtest::prints;
using vqtest::waitUntil;

class Notify : public vqtest::VqregStore {
protected:
    Notify() {
        file.write(kText);
        vqtest::moveFileTime(file.path());
    }

    // From here on it hears of a file that is not as old.
    void watch(Agent& agent) const {
        ASSERT_EQ(agent.open(file.path()), VQRegLib::REGLIB_OK);
        agent.watch();
        ASSERT_TRUE(vqtest::waitWatchers(1, agent.pid()));
    }

    // As an editor does it: another file in the place of the old one. Each one has a time of its own,
    // in whole seconds.
    void edit(const std::string& text) const {
        const std::string other = file.path() + ".other";
        std::ofstream(other) << text;
        vqtest::moveFileTime(other);
        std::filesystem::rename(other, file.path());
    }

    static constexpr const char* kText = "[Velquist]\n\"Port\"=dword:00000050\n";
    static constexpr const char* kEdited = "[Velquist]\n\"Port\"=dword:00000051\n";
};

TEST_F(Notify, MakesRunningProgramsReadAndTellsThem) {
    Agent agent(VQREG_AGENT_PATH);
    watch(agent);
    ASSERT_EQ(agent.get(".", "Port").dword(), 0x50u);
    edit(kEdited);
    EXPECT_EQ(agent.get(".", "Port").dword(), 0x50u) << "nobody looks at the file unasked";
    EXPECT_EQ(run({"notify"}), prints(""));
    EXPECT_EQ(agent.get(".", "Port").dword(), 0x51u);
    EXPECT_TRUE(waitUntil([&] { return agent.changes() > 0; }));
    EXPECT_EQ(file.read(), kEdited) << "the text is the user's own, to the byte";
}

// The change of a program that has not looked at the file would write over it.
TEST_F(Notify, SavesTheEditFromTheNextChangeOfAProgram) {
    Agent agent(VQREG_AGENT_PATH);
    ASSERT_EQ(agent.open(file.path()), VQRegLib::REGLIB_OK);
    edit(kEdited);
    EXPECT_EQ(run({"--no-notify", "notify"}), prints(""));
    EXPECT_EQ(agent.set(".", "Added", 1), VQRegLib::REGLIB_OK);
    EXPECT_EQ(file.read(), "[Velquist]\n\"Added\"=dword:00000001\n\"Port\"=dword:00000051\n");
}

TEST_F(Notify, OfAMalformedEditSaysWhereAndTellsNobody) {
    Agent agent(VQREG_AGENT_PATH);
    watch(agent);
    edit("[Velquist]\n\"Port\"=dword 51\n\n");
    const auto result = run({"notify"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.err, run({"check"}).out + "vqreg: " + file.path() +
                              ": the text is malformed; nobody has been told\n");
    EXPECT_EQ(result.err.rfind(file.path() + ":2:16: error: ", 0), 0u) << result.err;
    EXPECT_EQ(agent.get(".", "Port").dword(), 0x50u) << "it lives on with what it knows";
    // The sound one is the first that is told.
    edit(kEdited);
    EXPECT_EQ(run({"notify"}), prints(""));
    EXPECT_TRUE(waitUntil([&] { return agent.changes() > 0; }));
    EXPECT_EQ(agent.changes(), 1u);
}

TEST_F(Notify, NeedsNoKeyOfTheRootsName) {
    edit("[Other]\n\"Port\"=dword:00000051\n");
    EXPECT_EQ(run({"notify"}), prints(""));
    EXPECT_EQ(file.read(), "[Other]\n\"Port\"=dword:00000051\n");
}

TEST_F(Notify, WaitsForTheLockOnlySoLong) {
    VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                              nullptr);
    ASSERT_EQ(session.VQRegBeginUpdate(), VQRegLib::REGLIB_OK);
    const auto result = run({"--timeout", "0.2", "notify"});
    EXPECT_EQ(session.VQRegEndUpdate(), VQRegLib::REGLIB_OK);
    EXPECT_EQ(result.status, 6);
}

TEST_F(Notify, NeedsAFile) {
    std::filesystem::remove(file.path());
    EXPECT_EQ(run({"notify"}),
              fails(3, file.path() + ": the file does not exist; nobody has been told"));
    EXPECT_EQ(vqtest::runVqreg({"notify"}),
              fails(3, "/etc/Velquist.cfg: the file does not exist; nobody has been told"));
    EXPECT_FALSE(file.exists());
    EXPECT_FALSE(std::filesystem::exists("/etc/Velquist.cfg"));
}

TEST_F(Notify, OfAnEmptyFileTellsNobody) {
    Agent agent(VQREG_AGENT_PATH);
    watch(agent);
    edit("");
    EXPECT_EQ(run({"notify"}),
              fails(1, file.path() + " has no key [Velquist]; nobody has been told"));
    std::ofstream(file.backupPath()) << kText;
    const std::string hint =
        " and its backup is not; \"vqreg restore\" brings the text back; nobody has been told";
    EXPECT_EQ(run({"notify"}), fails(3, file.path() + ": the file is empty" + hint));
    std::filesystem::remove(file.path());
    EXPECT_EQ(run({"notify"}), fails(3, file.path() + ": the file is missing" + hint));
    EXPECT_EQ(file.readBackup(), kText);
    EXPECT_EQ(agent.get(".", "Port").dword(), 0x50u) << "it lives on with what it knows";
    // The sound one is the first that is told.
    edit(kEdited);
    EXPECT_EQ(run({"notify"}), prints(""));
    EXPECT_TRUE(waitUntil([&] { return agent.changes() > 0; }));
    EXPECT_EQ(agent.changes(), 1u);
}
