// What "vqreg browse" does when others change the store meanwhile.
#include <sys/stat.h>

#include <filesystem>

#include "browse/BrowseStore.h"

using namespace vqtest::browse;
using vqtest::prints;

constexpr Size kWide{.rows = 14, .columns = 120};

class BrowseOthers : public BrowseTest {};

TEST_F(BrowseOthers, ShowsAndMarksTheirChangesAsTheyHappen) {
    Browsing browse = start();
    make({"set", "Network/Ports", "Ssh", "22"});
    browse.expect("changed by others: + [Velquist/Network/Ports] \"Ssh\"=dword:00000016");
    make({"set", "/", "Port", "81"});
    browse.expect("~ Port           dword   81");
    make({"mkkey", "Sound/Card"});
    browse.expect("changed by others: + [Velquist/Sound/Card]");
    make({"set", "Sound", "Volume", "3"});
    browse.expect("Velquist/Sound] \"Volume\"");
    browse.expectScreen(R"(
[Velquist]                                                              1 value
~{v Velquist                    } │~ Port           dword   81
~  > Network                    │
~  > Sound                      │
                                │
                                │
                                │
                                │
                                │
                                │
                                │
{FILE | lock: free | open in: no process in sight}
changed by others: + [Velquist/Sound] "Volume"=dword:00000003
?:help  /:search  Enter:edit  a:add  K:key  r:rename  d:delete  u:undo  q:end
)");
    browse.type("c");
    browse.expect("\n {v Velquist");
    browse.expect("│  Port           dword   81");
}

TEST_F(BrowseOthers, MarksWhatIsNewAndWhatHasLostSomething) {
    Browsing browse = start({"Network/Ports"}, kWide);
    browse.expect("{      Ports");
    make({"set", "Network/New", "a", "1"});
    browse.expect("+      New");
    make({"rm", "Network/Ports", "Http"});
    browse.expect("changed by others: - [Velquist/Network/Ports] \"Http\"");
    browse.expect("-{      Ports");
    make({"rm", "-r", "Sound"});
    browse.expectNot("   Sound");
    browse.expect("\n-v Velquist");
}

TEST_F(BrowseOthers, DoesNotMarkItsOwnChanges) {
    Browsing browse = start({"Network/Ports"}, kWide);
    browse.type("\te1\r");
    browse.expect("│  {Http                     dword   80801");
    browse.expect("\n v Velquist");
}

TEST_F(BrowseOthers, StaysAtTheKeyAndTheValueWhereOneIs) {
    Browsing browse = start({"Network/Ports"}, kWide);
    browse.type("\t");
    browse.expect("{Http");
    make({"set", "Network/Ports", "Aaa", "1"});
    make({"set", "Aaa", "x", "1"});
    browse.expect("+    Aaa");
    browse.expect("2 of 2 values");
    browse.expect("{Http");
    make({"rm", "-r", "Network/Ports"});
    browse.expect("[Velquist/Network] ");
}

TEST_F(BrowseOthers, TellsThatTheEditedValueHasChanged) {
    Browsing browse = start({"Network/Ports"}, kWide);
    browse.type("\te1");
    browse.expect("(dword): 80801");
    make({"set", "Network/Ports", "Http", "81"});
    browse.expect(
        "changed meanwhile: the value \"Http\" of the key \"Network/Ports\" is dword \"81\" now");
    browse.type("\r");
    browse.expect("is dword \"81\" now; go on all the same? [y/N]");
    EXPECT_EQ(prints("81\n"), run({"get", "Network/Ports", "Http"}));
    browse.type("n");
    browse.expect("nothing has been changed");
    EXPECT_EQ(prints("81\n"), run({"get", "Network/Ports", "Http"}));
    browse.type("e2");
    browse.expect("(dword): 812");
    make({"set", "Network/Ports", "Http", "82"});
    browse.expect("is dword \"82\" now");
    browse.type("\r");
    browse.expect("[y/N]");
    browse.type("y");
    browse.expect("done: set");
    EXPECT_EQ(prints("812\n"), run({"get", "Network/Ports", "Http"}));
    browse.type("u");
    browse.expect("undo: set");
    EXPECT_EQ(prints("82\n"), run({"get", "Network/Ports", "Http"}));
}

TEST_F(BrowseOthers, DeletesNoMoreThanTheQuestionWasAbout) {
    Browsing browse = start({"Network"}, kWide);
    browse.type("d");
    browse.expect("with 1 key and 3 values below it? [y/N]");
    make({"set", "Network/Ports", "Ssh", "22"});
    browse.expect("changed by others: + [Velquist/Network/Ports] \"Ssh\"");
    browse.type("y");
    browse.expect(
        "the value \"Ssh\" of the key \"Network/Ports\" is there now; go on all the same? [y/N]");
    browse.type("n");
    browse.expect("nothing has been changed");
    EXPECT_EQ(prints("22\n"), run({"get", "Network/Ports", "Ssh"}));
}

TEST_F(BrowseOthers, AsksWithTheNumberOfWhatIsLostBesides) {
    Browsing browse = start({"Sound"}, kWide);
    browse.type("KCard\r");
    browse.expect("done: add the key \"Sound/Card\"");
    for (const char* const name : {"a", "b"}) {
        make({"set", "Sound/Card", name, "1"});
        browse.expect("others: + [Velquist/Sound/Card] \"" + std::string(name) + "\"");
    }
    make({"set", "Sound/Card/Below", "c", "1"});
    browse.expect("[Velquist/Sound/Card/Below]");
    browse.type("u");
    browse.expect(
        "the value \"a\" of the key \"Sound/Card\" is there now, and 3 more; go on all the same? "
        "[y/N]");
    browse.type("y");
    browse.expect("done: undo: add");
    EXPECT_EQ(prints(""), run({"ls", "Sound"}));
}

TEST_F(BrowseOthers, LeavesNoMarksOfWhatOneHasDeletedOrChangedOneself) {
    Browsing browse = start({"Network/Ports"}, kWide);
    browse.type("k");
    browse.expect("{  v Network");
    make({"mkkey", "Network/New"});
    browse.expect("+      New");
    make({"set", "Network", "Host", "b"});
    browse.expect("~ Host");
    browse.expect("\n~{  v Network");
    browse.type("\te2\r");
    browse.expect("│  {Host                     string  b2");
    browse.type("h/New\r");
    browse.expect("{      New");
    browse.type("d");
    browse.expect("[y/N]");
    browse.type("y");
    browse.expect("done: delete the key \"Network/New\"");
    browse.expect("\n {  v Network");
    browse.expect("\n v Velquist");
}

TEST_F(BrowseOthers, AsksBeforeItUndoesWhatTheyHaveChangedSince) {
    Browsing browse = start({"Network/Ports"}, kWide);
    browse.type("\te1\r");
    browse.expect("done: set");
    make({"set", "Network/Ports", "Http", "5"});
    browse.expect("dword   5");
    browse.type("u");
    browse.expect(
        "the value \"Http\" of the key \"Network/Ports\" is dword \"5\" now; go on all the same? "
        "[y/N]");
    browse.type("n");
    browse.expect("nothing has been changed");
    EXPECT_EQ(prints("5\n"), run({"get", "Network/Ports", "Http"}));
    browse.type("u");
    browse.expect("[y/N]");
    browse.type("y");
    browse.expect("dword   8080");
    browse.type("u");
    browse.expect("nothing to undo");
}

TEST_F(BrowseOthers, SaysWhenNothingIsLeftToUndo) {
    Browsing browse = start({"Network/Ports"}, kWide);
    browse.type("\te1\r");
    browse.expect("done: set");
    make({"set", "Network/Ports", "Http", "8080"});
    browse.expect("changed by others: ~ [Velquist/Network/Ports] \"Http\"");
    browse.type("u");
    browse.expect("nothing is left to do");
}

TEST_F(BrowseOthers, SaysAsLongAsTheFileIsMalformed) {
    Browsing browse = start({}, kWide);
    browse.expect("> Network");
    file.write("[Velquist]\nnonsense\n");
    browse.expect("\nthe file is malformed, line 2:");
    browse.expect("this is how it was before");
    browse.expect("> Network");
    browse.type("j");
    browse.expectNot("this is how it was before");
    browse.expect("store.cfg | the file is malformed, line 2:");
    file.write(kText);
    browse.expect("{FILE | lock: free");
    file.write("[Velquist]\n\"New\"=dword:00000001\n");
    browse.expect("+ New");
}

TEST_F(BrowseOthers, SaysAsLongAsTheFileIsMissing) {
    Browsing browse = start({"Network/Ports"}, kWide);
    browse.expect("{      Ports");
    std::filesystem::remove(file.path());
    browse.expect("{FILE | the file is missing | lock");
    browse.expect("{      Ports");
    browse.type("j");
    browse.expectNot("this is how it was before");
    browse.expect("{FILE | the file is missing | lock");
    file.write(kText);
    browse.expect("{FILE | lock: free");
    browse.expect("   Sound");
    file.write("");
    browse.expect("{FILE | the file is empty | lock");
    browse.expect("   Sound");
}

TEST_F(BrowseOthers, SaysNoMoreOfAFaultOnceTheFileIsAsBefore) {
    Browsing browse = start({}, kWide);
    browse.expect("> Network");
    file.write("[Velquist]\nnonsense\n");
    browse.expect("line 2: ");
    browse.expect("this is how it was before");
    file.write(kText);
    browse.expect("{FILE | lock: free");
    browse.expectNot("this is how it was before");
    std::filesystem::remove(file.path());
    browse.expect("\nthe file is missing; this is how it was before");
    file.write(kText);
    browse.expect("{FILE | lock: free");
    browse.expectNot("this is how it was before");
}

TEST_F(BrowseOthers, SaysWhatIsInThePlaceOfTheFileAndWaitsForNothing) {
    Browsing browse = start({}, kWide);
    browse.expect("> Network");
    const std::string pipe = file.path() + ".pipe";
    ASSERT_EQ(0, ::mkfifo(pipe.c_str(), 0600));
    std::filesystem::rename(pipe, file.path());
    browse.expect("{FILE | the file is a special file, not a file | lock");
    browse.type("j");
    browse.expect("{  > Network");
    std::filesystem::remove(file.path());
    std::filesystem::create_directory(file.path());
    browse.expect("{FILE | the file is a directory, not a file | lock");
    std::filesystem::remove(file.path());
    file.write(kText);
    browse.expect("{FILE | lock: free");
}

TEST_F(BrowseOthers, NeverHasTheStoreOpenItself) {
    Browsing browse = start({"Network/Ports"}, kWide);
    browse.type("\te1\r");
    browse.expect("done: set");
    make({"rm", "Network", "Host"});
    browse.expect("changed by others: - [Velquist/Network] \"Host\"");
    browse.type("e2\r");
    browse.expect("done: set");
    browse.expect("808012");
    EXPECT_EQ(1, run({"get", "Network", "Host"}).status);
    EXPECT_THAT(run({"info"}).out, testing::HasSubstr("no process in sight"));
}

TEST_F(BrowseOthers, MakesAKeyAgainWhereTheEditedValueHadIts) {
    Browsing browse = start({"Network/Ports"}, kWide);
    browse.type("\te1");
    browse.expect("(dword): 80801");
    make({"rm", "-r", "Network/Ports"});
    browse.expect("changed meanwhile: the key \"Network/Ports\" is gone");
    browse.type("\r");
    browse.expect("the key \"Network/Ports\" is gone; go on all the same? [y/N]");
    browse.type("y");
    browse.expect("done: add the value \"Http\" of the key \"Network/Ports\"");
    EXPECT_EQ(prints("80801\n"), run({"get", "Network/Ports", "Http"}));
    browse.type("u");
    browse.expect("done: undo: add");
    EXPECT_EQ(1, run({"get", "Network/Ports", "Http"}).status);
}
