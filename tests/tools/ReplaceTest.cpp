// What import --replace and rm -r may delete.
#include "tools/VqregStore.h"

using vqtest::Arguments;
using vqtest::CommandResult;
using vqtest::fails;
using vqtest::prints;

namespace {

const std::string kText =
    "[Velquist]\n\"Top\"=string:x\n[Velquist/Net]\n\"Port\"=dword:00000050\n[Velquist/Net/Dns]\n"
    "\"First\"=string:a\n[Velquist/Other]\n\"a\"=string:b\n";

const std::string kKeyless =
    "-: the text names no key, and would replace everything by nothing; nothing has been changed";

const std::string kAdvice =
    "; --replace replaces the first key of a text with what is below it and nothing else";

}  // namespace

class Replace : public vqtest::VqregStore {
protected:
    Replace() { file.write(kText); }

    CommandResult replace(const std::string& text, Arguments options = {}) const {
        options.insert(options.begin(), {"import", "--replace"});
        options.emplace_back("-");
        return run(options, text);
    }

    void expectUntouched() const {
        EXPECT_EQ(file.read(), kText);
        EXPECT_FALSE(file.backupExists());
    }
};

TEST_F(Replace, RefusesATextWithoutAKey) {
    for (const std::string text : {"", "{}", "{\"values\": {}, \"keys\": {}}"}) {
        EXPECT_EQ(replace(text), fails(4, kKeyless)) << text;
        EXPECT_EQ(replace(text, {"--key", "Net"}), fails(4, kKeyless)) << text;
        EXPECT_EQ(replace(text, {"--dry-run"}), fails(4, kKeyless)) << text;
    }
    EXPECT_EQ(replace("[]\n").status, 4);
    EXPECT_EQ(replace("\n").status, 4);
    expectUntouched();
}

// As in "vqreg export | vqreg import" when the first one fails.
TEST_F(Replace, RefusesWhatAFailedExportLeaves) {
    const CommandResult nothing = run({"export", "No/Such/Key"});
    EXPECT_EQ(nothing.status, 1);
    EXPECT_EQ(replace(nothing.out), fails(4, kKeyless));
    expectUntouched();
}

TEST_F(Replace, OfAnExportedKeyLeavesTheRestAlone) {
    for (const Arguments& form : {Arguments{"export", "Net"}, {"export", "--json", "Net"}}) {
        file.write(kText);
        const std::string text = run(form).out;
        make({"set", "Net", "New", "1"});
        make({"set", "Net/Dns", "Second", "c"});
        make({"set", "Other", "Kept", "d"});
        EXPECT_EQ(replace(text), prints(""));
        EXPECT_EQ(file.read(), kText + "\"Kept\"=string:d\n");
    }
}

TEST_F(Replace, OfAWholeExportReplacesEverything) {
    const std::string text = run({"export"}).out;
    const std::string json = run({"export", "--json"}).out;
    for (const std::string& whole : {text, json}) {
        make({"set", "Other", "Lost", "d"});
        make({"mkkey", "Lost/Too"});
        EXPECT_EQ(replace(whole), prints(""));
        EXPECT_EQ(file.read(), kText);
    }
    EXPECT_EQ(replace("[Velquist]\n"), prints(""));
    EXPECT_EQ(file.read(), "[Velquist]\n");
}

TEST_F(Replace, MakesTheKeyThatATextBeginsWith) {
    EXPECT_EQ(replace("[Velquist/New/Deep]\n\"a\"=string:b\n"), prints(""));
    EXPECT_EQ(run({"ls", "-R", "New"}), prints("Deep/\nDeep/a\n"));
    EXPECT_EQ(run({"get", "/", "Top"}), prints("x\n"));
}

TEST_F(Replace, RefusesKeysOutsideOfTheFirstOne) {
    EXPECT_EQ(replace("[Velquist/Net]\n[Velquist/Net/Dns]\n[Velquist/Other]\n"),
              fails(5, "-: the text has more than the key [Velquist/Net]" + kAdvice));
    EXPECT_EQ(replace("[Velquist/Net/Dns]\n[Velquist/Net]\n\"Port\"=dword:00000001\n"),
              fails(5, "-: the text has more than the key [Velquist/Net/Dns]" + kAdvice));
    EXPECT_EQ(replace("[Other]\n"),
              fails(5, "-: the text has more than the key [Velquist]" + kAdvice));
    EXPECT_EQ(replace("[Velquist/Other]\n", {"--key", "Net"}).status, 5);
    expectUntouched();
}

TEST_F(Replace, OfANamedKeyCoversNoMoreThanTheText) {
    EXPECT_EQ(replace("[Velquist/Net/Dns]\n\"Second\"=string:b\n", {"--key", "Net"}), prints(""));
    EXPECT_EQ(run({"ls", "-R", "Net"}), prints("Port\nDns/\nDns/Second\n"));
    EXPECT_EQ(replace("[Velquist]\n[Velquist/Net]\n\"Port\"=dword:00000001\n", {"--key", "Net"}),
              prints(""));
    EXPECT_EQ(run({"ls", "-R"}), prints("Top\nNet/\nNet/Port\nOther/\nOther/a\n"));
}

TEST_F(Replace, ByJsonNamesTheKey) {
    const std::string text = "{\"values\": {\"Port\": {\"type\": \"dword\", \"value\": 1}}}";
    EXPECT_EQ(replace(text),
              fails(4,
                    "-: the text has no \"key\", the key that it is to replace; name the key "
                    "with --key"));
    expectUntouched();
    EXPECT_EQ(replace(text, {"--key", "Net"}), prints(""));
    EXPECT_EQ(run({"ls", "-R"}), prints("Top\nNet/\nNet/Port\nOther/\nOther/a\n"));
}

TEST_F(Replace, DoesNotPutAKeyInThePlaceOfAValueAbove) {
    EXPECT_EQ(replace("[Velquist/Top/Below]\n"),
              fails(5, "\"Top\" is a value of the root key, not a key"));
    EXPECT_EQ(replace("[Velquist/Top/Below]\n", {"--dry-run"}).status, 5);
    expectUntouched();
}

TEST_F(Replace, OfTheWholeStoreByRmWantsItsWord) {
    const CommandResult refused = run({"rm", "-rf", "/"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.err.substr(0, refused.err.find('\n')),
              "vqreg: -r of the root key removes the whole store; add --whole-store");
    EXPECT_EQ(run({"rm", "-r", "."}).status, 2);
    EXPECT_EQ(run({"rm", "--whole-store", "/"}).status, 5);
    EXPECT_EQ(run({"rm", "-r", "--whole-store", "Net"}).status, 2);
    expectUntouched();
    make({"rm", "-r", "--whole-store", "/"});
    EXPECT_EQ(file.read(), "[Velquist]\n");
}
