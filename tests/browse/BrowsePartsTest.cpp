// The parts of "vqreg browse" without a terminal.
#include <gmock/gmock.h>

#include <clocale>
#include <string>

#include "tools/browse/Browser.h"
#include "tools/browse/CellText.h"
#include "tools/browse/Contents.h"
#include "tools/browse/Edits.h"
#include "tools/browse/LineEdit.h"
#include "tools/browse/Search.h"
#include "tools/browse/TreeRows.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/usage/BrowseRequest.h"

using namespace vqreg;
using testing::ElementsAre;

namespace {

Key rootOf(const std::string& lines) {
    Key root = *findKey(parseConfigText("[Velquist]\n" + lines).top, {"Velquist"});
    root.name = "Velquist";
    return root;
}

const std::string kLines =
    "\"Port\"=dword:00000050\n"
    "[Velquist/Network]\n"
    "\"Host\"=string:a.example\n"
    "[Velquist/Network/Ports]\n"
    "\"Http\"=dword:00001F90\n"
    "[Velquist/Sound]\n";

std::vector<std::string> namesOf(const TreeRows& tree) {
    std::vector<std::string> names;
    for (const TreeRows::Row& row : tree.rows()) {
        names.push_back(std::string(row.depth, '.') + row.key->name);
    }
    return names;
}

Value valueOf(const Key& root, const Path& path, const std::string& name) {
    return findKey(root, path)->values.at(name);
}

class CellTexts : public testing::Test {
protected:
    CellTexts() { std::setlocale(LC_CTYPE, "C.UTF-8"); }
    ~CellTexts() override { std::setlocale(LC_CTYPE, "C"); }
};

}  // namespace

TEST_F(CellTexts, FitWithAMarkWhereTheyAreCut) {
    EXPECT_EQ(L"abc", fitted("abc", 3));
    EXPECT_EQ(L"ab\u2026", fitted("abcd", 3));
    EXPECT_EQ(L"\u2026cd", fittedEnd("abcd", 3));
    EXPECT_EQ(L"ab   ", padded("ab", 5));
    EXPECT_EQ(L"", fitted("abc", 0));
}

TEST_F(CellTexts, DoNotCutWideCharactersAndCodesInTheMiddle) {
    EXPECT_EQ(L"\u65e5\u2026", fitted("\xe6\x97\xa5\xe6\x9c\xac", 3));
    EXPECT_EQ(L"\u65e5\u2026 ", padded("\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e", 4));
    EXPECT_EQ(L"a\u2026", fitted("a\x1b", 4));
    EXPECT_EQ(L"a\\x1B", fitted("a\x1b", 5));
}

TEST_F(CellTexts, LookAtNoMoreThanIsSeen) {
    EXPECT_EQ(11u, glyphsOf(std::string(1000000, 'x'), 10).size());
}

TEST_F(CellTexts, HaveNoMoreMarksThanACellHolds) {
    const std::string mark = "\xcc\x81";
    const auto glyphs = glyphsOf("e" + mark + mark + mark);
    ASSERT_EQ(2u, glyphs.size());
    EXPECT_EQ(L"e\u0301\u0301", glyphs[0].shown);
    EXPECT_EQ(L"\\xCC\\x81", glyphs[1].shown);
    EXPECT_EQ(L"\\xCC\\x81", glyphsOf(mark)[0].shown);
}

TEST_F(CellTexts, KeepTheCursorOfALongLineInSight) {
    LineEdit edit(std::string(200, 'x') + "end");
    LineEdit::Part part = edit.part(20);
    EXPECT_EQ(19, part.cursor);
    EXPECT_EQ(L"xxxxxxxxxxxxxxxxend", part.shown);
    edit.take({eKey::eHome});
    part = edit.part(20);
    EXPECT_EQ(0, part.cursor);
    EXPECT_EQ(std::wstring(19, L'x') + L'\u2026', part.shown);
}

TEST(BrowseTree, KeepsWhatIsOpenWhenTheStoreChanges) {
    TreeRows tree;
    tree.setTop(rootOf(kLines));
    EXPECT_THAT(namesOf(tree), ElementsAre("Velquist", ".Network", ".Sound"));
    tree.open(1);
    EXPECT_THAT(namesOf(tree), ElementsAre("Velquist", ".Network", "..Ports", ".Sound"));
    EXPECT_EQ((Path{"Network", "Ports"}), tree.pathOf(2));
    tree.setTop(rootOf("[Velquist/Aaa]\n" + kLines));
    EXPECT_THAT(namesOf(tree), ElementsAre("Velquist", ".Aaa", ".Network", "..Ports", ".Sound"));
    EXPECT_EQ(3u, tree.rowOf({"NETWORK", "ports"}));
    EXPECT_EQ(2u, tree.rowOf({"Network", "Gone", "Below"}));
    tree.close(2);
    EXPECT_THAT(namesOf(tree), ElementsAre("Velquist", ".Aaa", ".Network", ".Sound"));
    EXPECT_EQ(3u, tree.reveal({"Network", "Ports"}));
}

TEST(BrowseSearch, GoesRoundInBothDirections) {
    const Key root = rootOf(kLines);
    const Place port{{}, "Port"};
    const Place ports{{"Network", "Ports"}, std::nullopt};
    EXPECT_EQ(ports, findNext(root, port, "PORT", true));
    EXPECT_EQ(port, findNext(root, ports, "port", true));
    EXPECT_EQ(ports, findNext(root, port, "port", false));
    EXPECT_EQ(port, findNext(root, ports, "port", false));
    EXPECT_EQ((Place{{"Network", "Ports"}, "Http"}), findNext(root, port, "8080", true));
    EXPECT_EQ(std::nullopt, findNext(root, port, "nowhere", true));
}

TEST(BrowseEdits, AreUndoneByWhatBringsBackTheState) {
    const Key root = rootOf(kLines);
    const Edit deletion = deleteKey({"Network"}, *findKey(root, {"Network"}));
    EXPECT_EQ(std::nullopt, staleness(root, deletion));
    const Key after = rootOf("\"Port\"=dword:00000050\n[Velquist/Sound]\n");
    EXPECT_EQ(std::nullopt, staleness(after, undoing(deletion)));
    const auto again = rebased(undoing(deletion), after);
    ASSERT_TRUE(again);
    EXPECT_EQ(4u, again->changes.size());
    EXPECT_FALSE(rebased(undoing(deletion), root));
}

TEST(BrowseEdits, NameTheFirstPlaceThatIsNotAsExpected) {
    const Key root = rootOf(kLines);
    Value http = valueOf(root, {"Network", "Ports"}, "http");
    Value other = http;
    other.number = 1;
    const Path ports = {"Network", "Ports"};
    EXPECT_EQ(std::nullopt, staleness(root, setValue(ports, http, other)));
    EXPECT_EQ("the value \"Http\" of the key \"Network/Ports\" is dword \"8080\" now",
              staleness(root, setValue(ports, other, http)));
    EXPECT_EQ("the value \"Http\" of the key \"Network/Ports\" is dword \"8080\" now",
              staleness(root, setValue(ports, std::nullopt, http)));
    EXPECT_EQ("the value \"Http\" of the key \"Sound\" is gone",
              staleness(root, deleteValue({"Sound"}, http)));
    EXPECT_EQ("the key \"Gone\" is gone", staleness(root, setValue({"Gone"}, std::nullopt, http)));
    EXPECT_EQ("the key \"Gone\" is gone", staleness(root, createKey({"Gone", "Below"})));
    EXPECT_EQ("the key \"sound\" is there already", staleness(root, createKey({"sound"})));
    http.name = "Ports";
    EXPECT_EQ("the value \"Ports\" of the key \"Network\" is a sub key now",
              staleness(root, setValue({"Network"}, std::nullopt, http)));
    const Key seen = rootOf("[Velquist/Network]\n\"Host\"=string:a.example\n");
    EXPECT_EQ("the key \"Network/Ports\" is there now, and 1 more",
              staleness(root, deleteKey({"Network"}, *findKey(seen, {"Network"}))));
}

TEST(BrowseEdits, AreRefusedForNamesThatAreTakenOrBroken) {
    const Key root = rootOf(kLines);
    const Value port = valueOf(root, {}, "port");
    EXPECT_EQ(std::nullopt, refusal("Velquist", root, renameValue({}, port, "PORT")));
    EXPECT_EQ("the key \"Sound\" exists already",
              refusal("Velquist", root, renameValue({}, port, "sound")));
    EXPECT_EQ("the value \"Port\" of the root key exists already",
              refusal("Velquist", root, createKey({"port"})));
    EXPECT_EQ("a value name must not hold a double quote: \"a\"b\", byte 2",
              refusal("Velquist", root, renameValue({}, port, "a\"b")));
    EXPECT_TRUE(
        refusal("Velquist", root,
                renameKey({"Network"}, *findKey(root, {"Network"}), std::string(2040, 'x'))));
}

TEST(BrowseMarks, AreOnlyForWhatOthersHaveChanged) {
    Contents contents;
    contents.replace(rootOf(kLines), {});
    contents.clearMarks();
    const Value before = valueOf(contents.root(), {"Network"}, "host");
    Value after = before;
    after.bytes = "b";
    const Edit own = setValue({"Network"}, before, after);
    const std::string changed =
        "\"Port\"=dword:00000051\n[Velquist/Network]\n\"Host\"=string:b\n[Velquist/Sound]\n";
    const auto others = contents.replace(rootOf(changed), own.changes);
    EXPECT_EQ(' ', contents.marks().ofValue({"Network"}, "Host"));
    EXPECT_EQ('~', contents.marks().ofValue({}, "PORT"));
    EXPECT_EQ('-', contents.marks().ofKey({"network"}));
    EXPECT_EQ(' ', contents.marks().ofKey({"Sound"}));
    EXPECT_EQ(3u, others.size());
}

TEST(BrowseKeys, GiveUpAnEditThatHasNotBegunYet) {
    Browser browser("Velquist", {"Velquist"});
    browser.show(parseConfigText("[Velquist]\n\"Port\"=dword:00000050\n"));
    const auto type = [&](const char* keys) {
        for (; *keys != '\0'; ++keys) {
            browser.type(*keys == '\r'   ? Keystroke{eKey::eEnter}
                         : *keys == '\t' ? Keystroke{eKey::eTab}
                                         : Keystroke{eKey::eText, static_cast<wchar_t>(*keys)});
        }
    };
    type("\te1\r");
    ASSERT_TRUE(browser.takeOrder());
    type("e2\r");
    browser.tellEnd(0, "");  // the next one is in order, and nobody has taken it
    browser.type({eKey::eEscape});
    EXPECT_FALSE(browser.takeOrder());
    EXPECT_FALSE(browser.takeCancel());
    EXPECT_EQ("given up; nothing has been changed", browser.message());
    type("e3\r");
    EXPECT_TRUE(browser.takeOrder());
}

TEST(BrowseRequests, ComeBackFromTheirArguments) {
    BrowseRequest request;
    request.store.file = "";
    request.store.timeoutSeconds = 0.25;
    request.store.notify = false;
    request.isColored = true;
    request.key = "=a/-";
    const auto again = BrowseRequest::of(request.arguments());
    ASSERT_TRUE(again);
    EXPECT_EQ(request.arguments(), again->arguments());
    EXPECT_EQ("", again->store.file);
    EXPECT_EQ(std::nullopt, again->store.root);
    EXPECT_EQ(std::nullopt, BrowseRequest::of({"browse"}));
}
