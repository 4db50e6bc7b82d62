// What "vqreg browse" makes of keys that are typed before their time, and of texts that are pasted.
#include "browse/BrowseStore.h"
#include "support/Wait.h"

using namespace vqtest::browse;
using testing::HasSubstr;
using testing::Not;
using VQRegLib::CRegKey;
using VQRegLib::CRegLib;
using vqtest::prints;

constexpr Size kWide{.rows = 14, .columns = 160};

// Somebody else has the lock, so that an edit is under way as long as that is wanted.
class BrowseAhead : public BrowseTest {
protected:
    void SetUp() override { ASSERT_GE(holder.VQRegBeginUpdate(), 0); }

    static constexpr int kKeys = 80;

    template <typename OneKey>
    static std::chrono::steady_clock::duration timeOfKeys(OneKey oneKey) {
        const auto begin = std::chrono::steady_clock::now();
        for (int key = 1; key <= kKeys; ++key) {
            oneKey(key);
        }
        return std::chrono::steady_clock::now() - begin;
    }

    CRegLib holder{file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr};
};

TEST_F(BrowseAhead, SaysAtOnceThatAnEditIsUnderWayAndWhatWaits) {
    Browsing browse = start({"--timeout", "60", "Network"}, kWide);
    browse.type("\te!\r");
    browse.expect("\nwriting; Esc gives it up\n");
    browse.type("j");
    browse.expect("writing; Esc gives it up; 1 key waits\n");
    browse.type(std::string(1200, 'j'));
    browse.expect("; 1000 keys wait, and no more are kept\n");
    browse.type(kEscape);
    browse.expect("given up; nothing has been changed");
    browse.expect("?:help");
    holder.VQRegEndUpdate();
}

TEST_F(BrowseAhead, TakesTheKeysThatWaitOnceTheEditIsMade) {
    Browsing browse = start({"Network"}, kWide);
    browse.type("\te!\r");
    browse.expect("writing;");
    browse.type(
        "je\x15"
        "AB\r");
    browse.expect("6 keys wait");
    holder.VQRegEndUpdate();
    browse.expect("done: set the value \"Key\"");
    EXPECT_EQ(prints("a.example!\n"), run({"get", "Network", "Host"}));
    EXPECT_EQ(prints("AB\n"), run({"get", "Network", "Key"}));
}

TEST_F(BrowseAhead, TakesNoAnswerThatWasTypedBeforeItsQuestion) {
    Browsing browse = start({"Network"}, kWide);
    browse.type("\te!\r");
    browse.expect("writing;");
    browse.type("jdy");
    browse.expect("3 keys wait");
    holder.VQRegEndUpdate();
    browse.expect("Delete the value \"Key\" of the key \"Network\"? It comes back");
    browse.expect("Esc gives up");
    EXPECT_EQ(prints("00FF10\n"), run({"get", "Network", "Key"}));
    browse.type("y");
    browse.expect("done: delete the value \"Key\"");
}

TEST_F(BrowseAhead, DropsKeysThatWereMeantForWhatWasSeenBefore) {
    Browsing browse = start({"Network"}, kWide);
    browse.type("\te!\r");
    browse.expect("writing;");
    browse.type("jr2\r");
    browse.expect("4 keys wait");
    CRegKey key;
    ASSERT_EQ(0, holder.VQRegCreateKey(holder.RootKey(), "Network", key, 0));
    ASSERT_EQ(0, holder.VQRegSetValue(key, "Ijk", 1ul));
    holder.VQRegEndUpdate();
    browse.expect(
        "done: set the value \"Host\" of the key \"Network\"; the keys typed meanwhile are "
        "dropped: "
        "others have changed the store");
    EXPECT_EQ(prints("Host\nIjk\nKey\nPorts/\n"), run({"ls", "Network"}));
}

TEST_F(BrowseAhead, AnswersKeysAtOnceWhileItWaits) {
    Browsing browse = start({"Network"}, kWide);
    browse.type("\te");
    browse.expect("(string): a.example\n");
    const auto withoutWriter = timeOfKeys([&](int key) {
        browse.type("j");
        browse.expect("(string): a.example" + std::string(static_cast<std::size_t>(key), 'j'));
    });
    browse.type("\r");
    browse.expect("waiting for the lock of FILE, held by process " + std::to_string(::getpid()) +
                  " (browse)\n");
    const auto withWriter = timeOfKeys([&](int key) {
        browse.type("j");
        browse.expect("; " + std::to_string(key) + " key");
    });
    // It must not wait for the writer's last words, a tenth of a second, with every key.
    EXPECT_LT(withWriter, withoutWriter + kKeys * std::chrono::milliseconds(50));
    browse.type(kEscape);
    browse.expect("given up; nothing has been changed");
    holder.VQRegEndUpdate();
}

class BrowsePaste : public BrowseTest {
protected:
    static std::string pasted(const std::string& text) { return "\x1b[200~" + text + "\x1b[201~"; }
};

TEST_F(BrowsePaste, IsTextWhateverItsLineEnds) {
    Browsing browse = start({"Network"});
    EXPECT_TRUE(browse.waitFor([&](const std::string&) {
        return browse.process().shown().find("\x1b[?2004h") != std::string::npos;
    }));
    browse.type("\te\x15" + pasted("one\rjdy\r\x01two\x1b[A"));
    browse.expect("Host (string): onejdytwo\n");
    browse.expect("line ends and control characters of the pasted text are left out");
    browse.type("!\r");
    browse.expect("done: set");
    EXPECT_EQ(prints("onejdytwo!\n"), run({"get", "Network", "Host"}));
    EXPECT_EQ(prints("Host\nKey\nPorts/\n"), run({"ls", "Network"}));
}

TEST_F(BrowsePaste, IsNoCommandAndNoAnswer) {
    Browsing browse = start({"Network"});
    browse.type("\td");
    browse.expect("[y/N]");
    browse.type(pasted("y"));
    browse.expect("a pasted text is taken only where a text is asked for");
    browse.expect("[y/N]");
    browse.type("n");
    browse.expect("nothing has been changed");
    browse.type(pasted("q") + "k");
    browse.expect("1 of 2 values");
    EXPECT_EQ(kText, file.read());
    browse.type("q");
    browse.expectEnd(0);
}

// Over a slow connection a part of the mark may come so late that what was there is a key.
TEST_F(BrowsePaste, EndsWithAMarkThatComesInParts) {
    Browsing browse = start({"Network"});
    browse.type("\te\x15\x1b[200~abc\x1b");
    browse.expect("Host (string): abc\n");  // is shown once nothing more is waited for
    browse.type("[2\x1b");                  // it was not the mark
    browse.expect("Host (string): abc[2\n");
    browse.expect("control characters of the pasted text are left out");
    browse.type("[201~!\r");
    browse.expect("done: set");
    EXPECT_EQ(prints("abc[2!\n"), run({"get", "Network", "Host"}));
    browse.type("q");
    browse.expectEnd(0);
}

class BrowseEncoding : public BrowseTest {};

TEST_F(BrowseEncoding, KeepsBytesThatTheLocaleHasNoCharactersFor) {
    Browsing browse = start({"Network"}, {}, {{"LC_ALL", "C"}});
    browse.type(
        "\te\x15Gr\xc3\xb6\xc3\x9f"
        "e und mehr\r");
    browse.expect("done: set");
    EXPECT_THAT(file.read(), HasSubstr("\"Host\"=string:Gr\xc3\xb6\xc3\x9f"
                                       "e und mehr\n"));
}

TEST_F(BrowseEncoding, KeepsBytesThatAreNoCharacters) {
    Browsing browse = start({"Network"});
    browse.type(
        "\te\x15Gr\xf6\xdf"
        "e \xe4\r");
    browse.expect("done: set");
    EXPECT_THAT(file.read(), HasSubstr("\"Host\"=string:Gr\xf6\xdf"
                                       "e \xe4\n"));
}

TEST_F(BrowseEncoding, PutsTogetherWhatComesInParts) {
    Browsing browse = start({"Network"});
    browse.type(
        "\te\x15"
        "a\xe6");
    browse.expect("(string): a\n");
    browse.type("\x97");
    browse.type(
        "\xa5"
        "b");
    browse.expect(
        "(string): a\xe6\x97\xa5"
        "b\n");
}
