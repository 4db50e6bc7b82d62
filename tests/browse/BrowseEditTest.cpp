// What "vqreg browse" changes in a store.
#include <memory>

#include "browse/BrowseStore.h"
#include "support/Handlers.h"
#include "support/ReadOnlyDirectory.h"
#include "support/Wait.h"

using namespace vqtest::browse;
using vqtest::prints;

class BrowseEdit : public BrowseTest {
protected:
    void expectData(const std::string& key, const std::string& name, const std::string& data) {
        EXPECT_EQ(prints(data + "\n"), run({"get", key, name}));
    }
};

TEST_F(BrowseEdit, ChangesDataInPlace) {
    Browsing browse = start({"Network/Ports"});
    browse.type("\t\r");
    browse.expect("Http (dword): 8080");
    browse.type("\x15");
    browse.type("0x50\r");
    browse.expect("done: set the value \"Http\" of the key \"Network/Ports\"");
    browse.expect("{Http           dword   80");
    expectData("Network/Ports", "Http", "80");
    browse.type(
        "e\x7f"
        "1\r");
    browse.expect("{Http           dword   81");
    browse.type(std::string(kF4) + "2\r");
    browse.expect("{Http           dword   812");
    expectData("Network/Ports", "Http", "812");
}

TEST_F(BrowseEdit, KeepsTheLineWithItsCursorAsItIsTyped) {
    Browsing browse = start({"Network"});
    browse.type("\te\x01");
    browse.type("x");
    browse.type(kRight);
    browse.type(kDelete);
    browse.expect("Host (string): xaexample");
    // The text is shown before the cursor is moved to its place.
    EXPECT_TRUE(
        browse.waitFor([&](const std::string&) { return browse.screen().cursorColumn() == 17; }));
    browse.type("\x05!\x1b[D\x0b\r");
    browse.expect("{Host           string  xaexample");
    expectData("Network", "Host", "xaexample");
}

TEST_F(BrowseEdit, ChecksDataByTheirType) {
    Browsing browse = start({"Network/Ports"});
    browse.type(
        "\te\x15"
        "4294967296\r");
    browse.expect("a dword must be a number from 0 to 4294967295");
    browse.expect("Http (dword): 4294967296");
    browse.type("\x7f\r");
    browse.expect("{Http           dword   429496729");
    Browsing binary = start({"Network"});
    binary.type("\tje\x15@/etc/passwd\r");
    binary.expect("binary data must be pairs of hexadecimal digits: \"@/etc/passwd\"");
    binary.type(
        "\x15"
        "0a0\r");
    binary.expect("binary data must be pairs of hexadecimal digits: \"0a0\"");
    binary.type("b\r");
    binary.expect("{Key            binary  0A0B");
}

TEST_F(BrowseEdit, LeavesWhatIsGivenUpOrTheSame) {
    Browsing browse = start({"Network/Ports"});
    browse.type("\te1");
    browse.expect("(dword): 80801");
    browse.type(kEscape);
    browse.expect("nothing has been changed");
    browse.expectNot("(dword):");
    browse.type("c");
    browse.expectNot("nothing has been changed");
    browse.type("e\r");
    browse.expect("nothing has been changed");
    EXPECT_EQ(kText, file.read());
}

TEST_F(BrowseEdit, ChangesTheType) {
    Browsing browse = start({"Network/Ports"});
    browse.type("\tt");
    browse.expect("Type: (s)tring, (d)word, (b)inary");
    browse.type("s");
    browse.expect("Http (string): 8080");
    browse.type("\r");
    browse.expect("{Http           string  8080");
    EXPECT_EQ(prints("string\n"), run({"get", "--type", "Network/Ports", "Http"}));
}

TEST_F(BrowseEdit, AddsValues) {
    Browsing browse = start({"Sound"});
    browse.type("a");
    browse.expect("Name of the new value:");
    browse.type("Vol:ume\r");
    browse.expect("a value name must not hold a colon");
    browse.type("\x15Volume\rd");
    browse.expect("Volume (dword):");
    browse.type("11\r");
    browse.expect("Volume         dword   11");
    expectData("Sound", "Volume", "11");
    browse.type("avolume\r");
    browse.expect("the value \"Volume\" of the key \"Sound\" exists already");
}

TEST_F(BrowseEdit, AddsKeys) {
    Browsing browse = start({"Sound"});
    browse.type("K");
    browse.expect("Name of the new key below Sound:");
    browse.type("a/b\r");
    browse.expect("a key name must not hold a slash");
    browse.type("\x15<root>\r");
    browse.expect("a key must not be named <root>");
    browse.type("\x15\r");
    browse.expect("a key name must not be empty");
    browse.type("Card\r");
    browse.expect("done: add the key \"Sound/Card\"");
    browse.expect("> Sound");
    browse.type(std::string(kF7) + "card\r");
    browse.expect("the key \"Sound/Card\" exists already");
    EXPECT_EQ(prints("Card/\n"), run({"ls", "Sound"}));
}

TEST_F(BrowseEdit, RenamesValuesAndKeys) {
    Browsing browse = start({"Network"});
    browse.type("\tr\x15Name\r");
    browse.expect("Name           string  a.example");
    expectData("Network", "Name", "a.example");
    browse.type(std::string(kLeft) + kF6 + "2\r");
    browse.expect("> Network2");
    expectData("Network2/Ports", "Http", "8080");
    EXPECT_EQ(1, run({"get", "Network", "Name"}).status);
}

TEST_F(BrowseEdit, RenamesOnlyTheSpelling) {
    Browsing browse = start({"Network"});
    browse.type("r\x15NETWORK\r");
    browse.expect("> NETWORK");
    browse.type("\tr\x15HOST\r");
    browse.expect("HOST           string  a.example");
    browse.type("u");
    browse.expect("Host           string  a.example");
    EXPECT_EQ(prints("Host\nKey\nPorts/\n"), run({"ls", "Network"}));
}

TEST_F(BrowseEdit, RefusesNamesThatAreTaken) {
    Browsing browse = start({"Network"});
    browse.type("\tr\x15key\r");
    browse.expect("the value \"Key\" of the key \"Network\" exists already");
    browse.type(std::string(kEscape));
    browse.expect("nothing has been changed");
    browse.type("h");
    browse.type("r\x15Sound\r");
    browse.expect("the key \"Sound\" exists already");
    EXPECT_EQ(kText, file.read());
}

TEST_F(BrowseEdit, DeletesAfterAQuestion) {
    Browsing browse = start({"Network"});
    browse.type("\td");
    browse.expect("Delete the value \"Host\" of the key \"Network\"? [y/N]");
    browse.type("n");
    browse.expect("nothing has been changed");
    browse.type(kDelete);
    browse.expect("[y/N]");
    browse.type("y");
    browse.expect("done: delete the value \"Host\" of the key \"Network\"");
    browse.expectNot("a.example");
    browse.type(std::string(kLeft) + kF8);
    browse.expect("Delete the key \"Network\" with 1 key and 2 values below it? [y/N]");
    browse.type("y");
    browse.expect("done: delete the key \"Network\"");
    EXPECT_EQ("[Velquist]\n\"Port\"=dword:00000050\n[Velquist/Sound]\n", file.read());
    browse.type("g");
    browse.type("d");
    browse.expect("the root key stays");
}

TEST_F(BrowseEdit, AsksWithTheNamesOfThoseWhoBringItBack) {
    VQRegLib::CRegLib other(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                            nullptr);
    Browsing browse = start({"Network"});
    browse.type("\td");
    browse.expect(
        "Delete the value \"Host\" of the key \"Network\"? It comes back with the next change\n");
    browse.expect(" of " + std::to_string(::getpid()) + " (browse). [y/N]");
}

TEST_F(BrowseEdit, AsksBeforeARenamingWhoseOldNameComesBack) {
    VQRegLib::CRegLib other(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                            nullptr);
    Browsing browse = start({"Network"}, {.rows = 14, .columns = 160});
    browse.type("r2\r");
    browse.expect("Rename the key \"Network\"? The old name comes back with the next change of " +
                  std::to_string(::getpid()) + " (browse). [y/N]");
    browse.type("n");
    browse.expect("nothing has been changed");
    EXPECT_EQ(kText, file.read());
    browse.type("\tr\x15key\r");
    browse.expect("the value \"Key\" of the key \"Network\" exists already");
    browse.type("2\r");
    browse.expect("Rename the value \"Host\" of the key \"Network\"? The old name comes back");
    browse.type("y");
    browse.expect("done: rename the value \"Host\"");
    expectData("Network", "key2", "a.example");
}

TEST_F(BrowseEdit, AsksOnlyWhileThereIsAProgramThatBringsItBack) {
    auto other = std::make_unique<VQRegLib::CRegLib>(file.path().c_str(), nullptr,
                                                     VQRegLib::CRegLib::eLocationDefault, nullptr);
    Browsing browse = start({"Network"});
    browse.expect("open in: " + std::to_string(::getpid()));
    other.reset();
    browse.type("r2\r");
    browse.expect("done: rename the key \"Network\"");
    expectData("Network2/Ports", "Http", "8080");
}

TEST_F(BrowseEdit, UndoesWhatItDidStepByStep) {
    Browsing browse = start({"Network"});
    browse.type("u");
    browse.expect("nothing to undo");
    browse.type("\te!\r");
    browse.expect("a.example!");
    browse.type("r\x15Name\r");
    browse.expect("Name           string  a.example!");
    browse.expect("done: rename");
    browse.type("hd");
    browse.expect("[y/N]");
    browse.type("y");
    browse.expectNot("> Network");
    browse.expect("done: delete");
    browse.type("aNew\rdy\r");
    browse.expect("a dword must be a number");
    browse.type(
        "\x15"
        "7\r");
    browse.expect("New            dword   7");
    browse.type("u");
    browse.expectNot("New  ");
    browse.type("u");
    browse.expect("> Network");
    browse.type("u");
    browse.expect("undo: rename");
    browse.type("u");
    browse.expect("undo: set");
    EXPECT_EQ(kText, file.read());
    browse.type("u");
    browse.expect("nothing to undo");
}

TEST_F(BrowseEdit, SaysWhyNothingCanBeWritten) {
    Browsing browse = start({"Network/Ports"}, {.rows = 14, .columns = 160});
    browse.expect("Http");
    const std::string away = file.directory() + ".away";
    ASSERT_EQ(0, ::rename(file.directory().c_str(), away.c_str()));
    browse.type("\te1\r");
    browse.expect("does not exist");
    ASSERT_EQ(0, ::rename(away.c_str(), file.directory().c_str()));
    browse.type("e1\r");
    browse.expect("done: set");
    expectData("Network/Ports", "Http", "80801");
}

TEST_F(BrowseEdit, WaitsForTheLockAndCanBeGivenUp) {
    VQRegLib::CRegLib holder(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                             nullptr);
    ASSERT_GE(holder.VQRegBeginUpdate(), 0);
    Browsing browse = start({"Network/Ports"}, {.rows = 14, .columns = 160});
    browse.type("\te1\r");
    browse.expect("waiting for the lock of FILE, held by process " + std::to_string(::getpid()));
    browse.type(kEscape);
    browse.expect("given up; nothing has been changed");
    browse.type("e1\r");
    browse.expect("waiting for the lock");
    holder.VQRegEndUpdate();
    browse.expect("done: set");
    expectData("Network/Ports", "Http", "80801");
}

TEST_F(BrowseEdit, SaysWhenTheLockIsNotObtainedInTime) {
    VQRegLib::CRegLib holder(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                             nullptr);
    ASSERT_GE(holder.VQRegBeginUpdate(), 0);
    Browsing browse = start({"--timeout", "0.1", "Network/Ports"}, {.rows = 14, .columns = 160});
    browse.type("\te1\r");
    browse.expect("the lock of FILE was not obtained within 0.1 s");
    browse.expect("lock: held by");
    holder.VQRegEndUpdate();
    browse.expect("lock: free");
    browse.type("e1\r");
    browse.expect("done: set");
    expectData("Network/Ports", "Http", "80801");
}

TEST_F(BrowseEdit, TellsOthersUnlessItIsNotTo) {
    VQRegLib::CRegLib session(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                              nullptr);
    vqtest::moveFileTime(file.path());
    vqtest::Handler handler;
    session.SetRegistryChangeHandler(&handler);
    Browsing quiet = start({"--no-notify", "Network/Ports"});
    quiet.type("\te1\r");
    quiet.expect("done: set");
    EXPECT_FALSE(
        vqtest::waitUntil([&] { return handler.calls() > 0; }, std::chrono::milliseconds(500)));
    vqtest::moveFileTime(file.path());
    Browsing browse = start({"Network/Ports"});
    browse.type("\te1\r");
    browse.expect("done: set");
    EXPECT_TRUE(handler.waitCalls(1));
    session.ClrRegistryChangeHandler(&handler);
}

TEST_F(BrowseEdit, ShowsAStoreThatCannotBeWrittenAndSaysSo) {
    const vqtest::ReadOnlyDirectory directory(file.directory() + "/fixed", kText.c_str());
    Browsing browse(directory.file(), {"--file", directory.file(), "browse", "Network/Ports"},
                    environment(), {.rows = 14, .columns = 160});
    browse.expect("Http");
    browse.type("\te1\r");
    browse.expect("fixed is on a read-only file system");
    browse.expect("dword   8080");
    browse.type("q");
    browse.expectEnd(0);
}
