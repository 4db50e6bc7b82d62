// What "vqreg browse" shows, and where its keys lead.
#include "browse/BrowseStore.h"

using namespace vqtest::browse;

class BrowseScreen : public BrowseTest {};

TEST_F(BrowseScreen, ShowsKeysOnTheLeftAndValuesOnTheRight) {
    Browsing browse = start();
    browse.expectScreen(R"(
[Velquist]                                                              1 value
 {v Velquist                    } │  Port           dword   80
   > Network                    │
     Sound                      │
                                │
                                │
                                │
                                │
                                │
                                │
                                │
{FILE | lock: free | open in: no process in sight}

?:help  /:search  Enter:edit  a:add  K:key  r:rename  d:delete  u:undo  q:end
)");
}

TEST_F(BrowseScreen, OpensKeysAndShowsTheirTypedValues) {
    Browsing browse = start();
    browse.type(std::string(kDown) + kRight + kRight + kUp);
    browse.expectScreen(R"(
[Velquist/Network]                                                     2 values
 v Velquist                     │  Host           string  a.example
 {  v Network                   } │  Key            binary  00FF10
       Ports                    │
     Sound                      │
                                │
                                │
                                │
                                │
                                │
                                │
{FILE | lock: free | open in: no process in sight}

?:help  /:search  Enter:edit  a:add  K:key  r:rename  d:delete  u:undo  q:end
)");
}

TEST_F(BrowseScreen, GoesToTheValuesAndBack) {
    Browsing browse = start({"Network"});
    browse.type("\t");
    browse.type(kDown);
    browse.expect("2 of 2 values");
    browse.expect("{Key            binary  00FF10");
    browse.type(kLeft);
    browse.expect("{  > Network");
}

TEST_F(BrowseScreen, BeginsWithTheKeyThatIsNamed) {
    Browsing browse = start({"network/ports"});
    browse.expect("[Velquist/Network/Ports]");
    browse.expect("Http           dword   8080");
}

TEST_F(BrowseScreen, ClosesKeysAndGoesToTheKeyAbove) {
    Browsing browse = start({"Network/Ports"});
    browse.expect("{      Ports");
    browse.type(kLeft);
    browse.expect("{  v Network");
    browse.type(kLeft);
    browse.expect("{  > Network");
    browse.expectNot("Ports");
    browse.type(kEnter);
    browse.expect("Ports");
    browse.type("h");
    browse.expectNot("Ports");
    browse.type("h");
    browse.expect("{v Velquist");
}

TEST_F(BrowseScreen, MovesByLettersPagesAndEnds) {
    std::string text = "[Velquist]\n";
    for (int number = 100; number < 150; ++number) {
        text += "\"v" + std::to_string(number) + "\"=dword:00000001\n";
    }
    file.write(text);
    Browsing browse = start();
    browse.type("lj");
    browse.expect("2 of 50 values");
    browse.type(kPageDown);
    browse.expect("12 of 50 values");
    browse.type("\x06");
    browse.expect("22 of 50 values");
    browse.type(kPageUp);
    browse.expect("12 of 50 values");
    browse.type("\x02");
    browse.expect("2 of 50 values");
    browse.type("G");
    browse.expect("50 of 50 values");
    browse.expect("{v149");
    browse.type("k");
    browse.expect("49 of 50 values");
    browse.type("g");
    browse.expect("1 of 50 values");
    browse.type("\x1b[F");
    browse.expect("50 of 50 values");
    browse.type("\x1b[H");
    browse.expect("1 of 50 values");
}

TEST_F(BrowseScreen, FindsNamesAndDataWhateverTheirCase) {
    Browsing browse = start();
    browse.type("/A.EXAM");
    browse.expect("Search: A.EXAM");
    browse.type(kEnter);
    browse.expect("{Host           string  a.example");
    browse.type("/ort");
    browse.expect("Search: A.EXAMort");
    browse.type("\x15ort\r");
    browse.expect("{      Ports");
    browse.type("n");
    browse.expect("{Port           dword   80");
    browse.type("N");
    browse.expect("{      Ports");
    browse.type("/\x15nowhere\r");
    browse.expect("not found: nowhere");
}

TEST_F(BrowseScreen, ExplainsItsKeysUntilTheNextOne) {
    for (const char* const key : {"?", kF1}) {
        Browsing browse = start({}, {.rows = 24, .columns = 80});
        browse.type(key);
        browse.expect("a           add a value");
        browse.expect("q F10   end");
        browse.type("q");
        browse.expect("> Network");
        browse.type("q");
        browse.expectEnd(0);
    }
}

TEST_F(BrowseScreen, SaysWhenAKeyMeansNothing) {
    Browsing browse = start();
    browse.type("z");
    browse.expect("no such key; ? tells which there are");
}

TEST_F(BrowseScreen, FollowsTheSizeOfTheTerminal) {
    Browsing browse = start();
    browse.expect("?:help");
    browse.resize({.rows = 20, .columns = 100});
    browse.expectScreen(R"(
[Velquist]                                                                                  1 value
 {v Velquist                            } │  Port                dword   80
   > Network                            │
     Sound                              │
                                        │
                                        │
                                        │
                                        │
                                        │
                                        │
                                        │
                                        │
                                        │
                                        │
                                        │
                                        │
                                        │
{FILE | lock: free | open in: no process in sight}

?:help  /:search  Enter:edit  a:add  K:key  r:rename  d:delete  u:undo  q:end
)");
    browse.resize({.rows = 5, .columns = 30});
    browse.expect("the terminal is too small: 40…");
    browse.resize({.rows = 14, .columns = 80});
    browse.expect("> Network");
}

TEST_F(BrowseScreen, KeepsAQuestionAtEverySizeOfTheTerminal) {
    Browsing browse = start({"Network"});
    browse.type("\td");
    browse.expect("Delete the value \"Host\" of the key \"Network\"? [y/N]");
    for (unsigned short columns = 40; columns <= 120; ++columns) {
        browse.resize({.rows = 14, .columns = columns});
        // The title ends one column before the screen does.
        ASSERT_TRUE(browse.waitFor([&](const std::string& all) {
            return browse.screen().rows().front().size() + 1 == columns &&
                   all.find("[y/N]") != std::string::npos;
        })) << columns
            << " columns:\n"
            << browse.text();
    }
    EXPECT_EQ(kText, file.read());
}

TEST_F(BrowseScreen, KeepsHelpAndMessagesWhenTheSizeOfTheTerminalChanges) {
    Browsing browse = start();
    browse.type("z");
    browse.expect("no such key");
    browse.resize({.rows = 24, .columns = 90});
    EXPECT_TRUE(browse.waitFor([&](const std::string& all) {
        return browse.screen().rows().front().size() + 1 == 90 &&
               all.find("no such key") != std::string::npos;
    })) << browse.text();
    browse.type("?");
    browse.expect("a           add a value");
    browse.resize({.rows = 24, .columns = 100});
    EXPECT_TRUE(browse.waitFor(
        [&](const std::string&) { return browse.screen().rows().front().size() + 1 == 100; }));
    browse.expect("a           add a value");
}

TEST_F(BrowseScreen, TellsWhoHasTheStoreOpenAndWhoHoldsItsLock) {
    VQRegLib::CRegLib holder(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                             nullptr);
    const std::string pid = std::to_string(::getpid());
    Browsing browse = start({}, {.rows = 14, .columns = 160});
    browse.expect("lock: free | open in: " + pid + " (browse)");
    ASSERT_GE(holder.VQRegBeginUpdate(), 0);
    browse.expect("lock: held by process " + pid + " (browse), for");
    holder.VQRegEndUpdate();
    browse.expect("lock: free");
}

TEST_F(BrowseScreen, HasColoursUnlessTheyAreUnwanted) {
    Browsing coloured = start({"--color=always"});
    coloured.expect("Network");
    EXPECT_NE(coloured.process().shown().find("\x1b[34m"), std::string::npos);
    Browsing plain = start({"--color=auto"});
    plain.expect("Network");
    EXPECT_EQ(plain.process().shown().find("\x1b[34m"), std::string::npos);
}

TEST_F(BrowseScreen, IsDrawnAnewWhenAskedFor) {
    Browsing browse = start();
    browse.expect("?:help");
    for (const char* const key : {kF5, "\x0c"}) {
        const std::size_t before = browse.bytesShown();
        browse.type(key);
        EXPECT_TRUE(browse.waitFor([&](const std::string&) {
            return browse.process().shown().find("> Network", before) != std::string::npos;
        }));
    }
}
