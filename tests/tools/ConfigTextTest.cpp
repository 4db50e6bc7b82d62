// The faults of a configuration text, with their places.
#include "tools/vqreg/text/ConfigText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace vqreg;
using testing::ElementsAre;
using testing::IsEmpty;
using VQRegLib::CRegLib;

namespace {

const std::string kKey = "[K]\n";

// "LINE:COL: error: what; mend" of each finding.
std::vector<std::string> faults(const std::string& text) {
    std::vector<std::string> lines;
    for (const Finding& finding : parseConfigText(text).findings) {
        lines.push_back(format("", finding).substr(1));
    }
    return lines;
}

struct Case {
    std::string line;
    std::string fault;
};

void expectFirstFaults(const std::vector<Case>& cases) {
    for (const Case& each : cases) {
        const std::vector<std::string> found = faults(kKey + each.line + "\n");
        ASSERT_FALSE(found.empty()) << each.line;
        EXPECT_EQ(each.fault, found.front()) << each.line;
    }
}

}  // namespace

TEST(ConfigTextTest, ReadsWhatTheLibraryWrites) {
    const std::string text =
        "[Velquist]\n"
        "\"Version\"=string:4.2 build 17\n"
        "[Velquist/Network]\n"
        "\"MacAddr\"=binary:0010A4C3F20B\n"
        "\"Mode\"=dword:00000001\n"
        "[Velquist/Network/Dns]\n"
        "\"Primary\"=string:10.1.1.2\n";
    const ConfigText parsed = parseConfigText(text);
    EXPECT_THAT(parsed.findings, IsEmpty());
    const Key& network = parsed.top.keys.at("velquist").keys.at("network");
    EXPECT_EQ("Network", network.name);
    EXPECT_EQ(1u, network.values.at("mode").number);
    EXPECT_EQ(CRegLib::eBinary, network.values.at("macaddr").type);
    EXPECT_EQ(std::string("\x00\x10\xA4\xC3\xF2\x0B", 6), network.values.at("macaddr").bytes);
    EXPECT_EQ(text, composeConfigText(parsed.top));
}

TEST(ConfigTextTest, ComposesKeysWithEmptyNames) {
    Key top;
    top.keys[""].keys["a"].name = "a";
    EXPECT_EQ("[]\n[/a]\n", composeConfigText(top));
}

TEST(ConfigTextTest, AcceptsAMissingLineEndAndAnEmptyText) {
    EXPECT_THAT(faults(""), IsEmpty());
    EXPECT_THAT(faults("[K]"), IsEmpty());
    EXPECT_THAT(faults(kKey + "\"a\"=string:x"), IsEmpty());
}

TEST(ConfigTextTest, FindsWhatTheLibraryRefuses) {
    const std::string value = "; write \"NAME\"=TYPE:DATA";
    expectFirstFaults({
        {"", "2:1: error: the line is empty; remove it"},
        {"  ", "2:1: error: the line has nothing but blanks; remove it"},
        {"# text", "2:1: error: the format has no comments; remove the line"},
        {" [K/a]", "2:1: error: blanks stand before the \"[\" of a key line; remove them"},
        {"text",
         "2:1: error: this is no key line and no value line; write [PATH] or "
         "\"NAME\"=TYPE:DATA"},
        {"[K/a", "2:5: error: the key line has no \"]\"; write [PATH]"},
        {"\"a=string:x", "2:1: error: the value's name has no closing quote" + value},
        {"\"a\" =string:x", "2:4: error: the value's name is not followed by \"=\"" + value +
                                "; a name cannot hold a double quote"},
        {"\"a\"=string", "2:11: error: \":\" is missing between type and data" + value},
        {"\"a\"=text:x", "2:5: error: \"text\" is no type; write string, dword or binary"},
        {"\"a\"= String:x",
         "2:5: error: \" String\" is no type; write string, in lower case and without blanks"},
    });
}

TEST(ConfigTextTest, FindsWhatTheLibraryReadsAsHardlyAnybodyMeansIt) {
    expectFirstFaults({
        {"x\"a\"=string:x", "2:1: warning: the text before the name is ignored; remove it"},
        {"\"a:b\"=string:x",
         "2:3: warning: a \":\" stands before the type: what follows it is taken for the data; "
         "choose a name without \":\""},
        {"\"a\"=dword:1F",
         "2:11: warning: the number has 2 digits instead of eight: it is read as 31; write eight "
         "hexadecimal digits"},
        {"\"a\"=dword:0000001g",
         "2:18: warning: \"g\" is no hexadecimal digit: it is read as 1; write eight hexadecimal "
         "digits"},
        {"\"a\"=binary:0x1",
         "2:13: warning: \"x\" is no hexadecimal digit: other bytes are read; write two "
         "hexadecimal digits for each byte, without separators"},
        {"\"a\"=binary:001",
         "2:14: warning: the number of digits is odd: the last one does not count; write two "
         "hexadecimal digits for each byte"},
        {"[]", "2:1: warning: \"[]\" names no key; remove the line"},
        {"[K] x",
         "2:4: warning: text stands after the \"]\" and would be written again; remove it"},
        {"[K/]", "2:3: warning: the \"/\" before the \"]\" adds no key; remove it"},
        {"[K//a]", "2:4: warning: a key has an empty name; remove a \"/\", or name the key"},
        {"[/K]", "2:2: warning: a key has an empty name; remove a \"/\", or name the key"},
        {"[" + std::string(2100, 'k') + "]",
         "2:2049: error: the line is too long: it is cut here, and the rest is read as a line of "
         "its own; keep lines within 2047 bytes"},
        {"[K/a\\b]",
         "2:5: warning: no program can open a key with \"\\\" in its name; choose another name"},
        {"[K/<root>]",
         "2:4: warning: a key named <root> gets no line when the file is written; choose another "
         "name"},
        {"[k]",
         "2:2: warning: \"k\" is the key \"K\" on line 1: case makes no difference; write \"K\", "
         "or choose another name"},
        {"\"a\"=string:x\ry",
         "2:13: warning: a carriage return ends the line here: the rest of it is ignored; remove "
         "it, or make it a line end"},
        {std::string("\"a\"=string:x\0y", 14),
         "2:13: warning: a NUL ends the line here: the rest of it is ignored; remove it"},
    });
}

TEST(ConfigTextTest, FindsValuesWithoutAKey) {
    EXPECT_THAT(faults("\"a\"=string:x\n\"b\"=string:y\n[K]\n\"c\"=string:z\n"),
                ElementsAre("1:1: error: a value stands before the first key; write a key line "
                            "above it"));
    EXPECT_THAT(faults("[K]\n[]\n\"a\"=string:x\n"),
                ElementsAre("2:1: warning: \"[]\" names no key; remove the line",
                            "3:1: error: a value stands after \"[]\", which names no key; write a "
                            "key line above it"));
}

TEST(ConfigTextTest, ValuesAfterABadKeyLineAreNoFaults) {
    EXPECT_THAT(faults("[K\n\"a\"=string:x\n\"a\"=string:x\n"),
                ElementsAre("1:3: error: the key line has no \"]\"; write [PATH]"));
}

TEST(ConfigTextTest, FindsWhatLaterLinesDisplace) {
    EXPECT_THAT(faults("[K]\n\"a\"=string:x\n\"a\"=string:y\n\"A\"=string:z\n"),
                ElementsAre("3:2: warning: the value replaces the one on line 2; remove one of the "
                            "two lines, or choose another name",
                            "4:2: warning: the value replaces \"a\" on line 3: case makes no "
                            "difference; remove one of the two lines, or choose another name"));
    EXPECT_THAT(faults("[K]\n[K/a]\n[K]\n\"a\"=string:y\n"),
                ElementsAre("4:2: warning: the value displaces the key \"a\" on line 2 with "
                            "everything below it; give the key or the value another name"));
    EXPECT_THAT(faults("[K]\n\"a\"=string:y\n[K/a]\n\"b\"=string:z\n"),
                ElementsAre("3:4: warning: \"a\" is a value on line 2: nothing finds what is below "
                            "it, and it is not written again; give the key or the value another "
                            "name"));
}

TEST(ConfigTextTest, FindsKeysWhoseParentsHaveNoLine) {
    EXPECT_THAT(faults("[K/a/b]\n[K]\n"),
                ElementsAre("1:1: warning: [K] and [K/a] have no lines before this one, which will "
                            "be written for them too: values would move; write [K] and [K/a] "
                            "before this line"));
}

TEST(ConfigTextTest, NamesTheColumnWhereALongLineIsCut) {
    const std::string head = kKey + "\"a\"=string:";
    const std::string cut =
        "2:2049: error: the line is too long: it is cut here, and the rest is read as a line of "
        "its own; keep lines within 2047 bytes";
    EXPECT_THAT(faults(head + std::string(2036, 'x') + "\n"), IsEmpty());
    EXPECT_THAT(faults(head + std::string(2037, 'x') + "\n"), ElementsAre(cut));
    EXPECT_THAT(faults(head + std::string(9000, 'x') + "\n"), ElementsAre(cut));
    EXPECT_THAT(faults(head + std::string(2037, 'x') + "\"b\"=string:y\n"),
                ElementsAre("2:2049: warning: the line is too long: it is cut here, and the rest "
                            "is read as a line of its own; keep lines within 2047 bytes"));
    EXPECT_THAT(faults(head + std::string(2037, 'x')),
                ElementsAre("2:2048: warning: the line is too long: with a line end it would be "
                            "cut after its last byte; keep lines within 2047 bytes"));
}

TEST(ConfigTextTest, MentionsCarriageReturnsAtLineEndsOnce) {
    EXPECT_THAT(faults("[K]\r\n\"a\"=string:x\r\n"),
                ElementsAre("1:4: warning: lines end in CR LF, and the next change writes LF; save "
                            "the file with LF"));
}

TEST(ConfigTextTest, FindsAByteOrderMarkAndAnEmptyLastLine) {
    EXPECT_THAT(faults("\xEF\xBB\xBF[K]\n"),
                ElementsAre("1:1: error: a byte order mark stands before the line; save the file "
                            "without one"));
    EXPECT_THAT(faults("[K]\n\n"), ElementsAre("2:1: error: the line is empty; remove it"));
}

TEST(ConfigTextTest, KeepsWhatStandsBeforeTheFirstError) {
    const ConfigText parsed = parseConfigText("[K]\n\"a\"=string:x\nbad\n\"b\"=string:y\n");
    EXPECT_FALSE(parsed.isReadable());
    EXPECT_EQ("[K]\n\"a\"=string:x\n", composeConfigText(parsed.top));
}

TEST(ConfigTextTest, GoesOnBehindAnError) {
    EXPECT_EQ(4u, faults("[K]\nbad\n[K\n\nworse\n").size());
}

TEST(ConfigTextTest, FormatsAFinding) {
    EXPECT_EQ("a.cfg:3:7: warning: odd; mend it", format("a.cfg", {3, 7, false, "odd", "mend it"}));
}
