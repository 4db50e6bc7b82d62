// What "vqreg browse" makes of names and data that are not meant for a terminal.
#include <algorithm>

#include "browse/BrowseStore.h"

using namespace vqtest::browse;

class BrowseHostile : public BrowseTest {};

TEST_F(BrowseHostile, ShowsWhatWouldMoveTheCursorAsCodes) {
    file.write(
        "[Velquist]\n"
        "\"a\x1b[2Jb\"=string:\x1b]0;title\x07\n"
        "\"b\tc\"=string:\x7f\n"
        "\"c\"=string:\xff\xfe"
        "x\xc3\n"
        "\"d\"=string:\xc2\x9b"
        "31m\n"
        "\"e\"=string:a\xe2\x80\xae"
        "txt.exe\n"
        "[Velquist/\x1b[31mred]\n");
    Browsing browse = start();
    browse.expectScreen(R"(
[Velquist]                                                             5 values
 {v Velquist                    } │  a\x1B[2Jb      string  \x1B]0;title\x07
     \x1B[31mred                │  b\x09c         string  \x7F
                                │  c              string  \xFF\xFEx\xC3
                                │  d              string  \xC2\x9B31m
                                │  e              string  a\xE2\x80\xAEtxt.exe
                                │
                                │
                                │
                                │
                                │
{FILE | lock: free | open in: no process in sight}

?:help  /:search  Enter:edit  a:add  K:key  r:rename  d:delete  u:undo  q:end
)");
}

TEST_F(BrowseHostile, ShowsWhatIsNotSeenAsCodes) {
    std::string text = "[Velquist]\n";
    for (const char* const character :
         {"\xcd\x8f", "\xe1\x85\x9f", "\xe1\x85\xa0", "\xe1\x9e\xb4", "\xe1\xa0\x8b",
          "\xe3\x85\xa4", "\xef\xb8\x8f", "\xef\xbe\xa0", "\xef\xbf\xb9"}) {
        text += "\"a" + std::string(character) + "\"=dword:00000001\n";
    }
    file.write(text);
    Browsing browse = start();
    for (const char* const code : {"a\\xCD\\x8F ", "a\\xE1\\x85\\x9F ", "a\\xE1\\x85\\xA0 ",
                                   "a\\xE1\\x9E\\xB4 ", "a\\xE1\\xA0\\x8B ", "a\\xE3\\x85\\xA4 ",
                                   "a\\xEF\\xB8\\x8F ", "a\\xEF\\xBE\\xA0 ", "a\\xEF\\xBF\\xB9 "}) {
        browse.expect(code);
    }
}

TEST_F(BrowseHostile, ShowsTheEndOfALongPath) {
    std::string path;
    for (int level = 100; level < 140; ++level) {
        path += (path.empty() ? "k" : "/k") + std::to_string(level);
    }
    file.write("[Velquist]\n[Velquist/" + path + "]\n");
    Browsing browse = start({path});
    browse.expect("/k137/k138/k139]");
    EXPECT_THAT(browse.screen().rows().front(), testing::StartsWith("[\xe2\x80\xa6"));
}

TEST_F(BrowseHostile, KeepsWideAndCombinedCharactersInTheirColumns) {
    file.write(
        "[Velquist]\n"
        "\"\xe6\x97\xa5\xe6\x9c\xac\"=string:\xe8\xaa\x9e\xe8\xaa\x9e\n"
        "\"e\xcc\x81t\xe9\"=string:Gr\xc3\xb6\xc3\x9f"
        "e\n");
    Browsing browse = start();
    browse.expect(
        "│  e\xcc\x81t\\xE9         string  Gr\xc3\xb6\xc3\x9f"
        "e");
    browse.expect("│  \xe6\x97\xa5\xe6\x9c\xac           string  \xe8\xaa\x9e\xe8\xaa\x9e");
}

TEST_F(BrowseHostile, ShowsBytesWhereTheLocaleHasNoCharacters) {
    file.write("[Velquist]\n\"\xc3\xb6\"=string:\xc3\xa4\n");
    Browsing browse = start({}, {}, {{"LC_ALL", "C"}});
    browse.expect("|  \\xC3\\xB6       string  \\xC3\\xA4");
}

TEST_F(BrowseHostile, CutsLongNamesAndData) {
    file.write("[Velquist]\n\"" + std::string(900, 'n') + "\"=string:" + std::string(1000, 'd') +
               "\n[Velquist/" + std::string(1500, 'k') + "]\n");
    Browsing browse = start();
    browse.expect("kkkk…");
    browse.expect("nnn…");
    browse.expect("ddd…");
    browse.type("\te");
    browse.expect("dddd\n");
    browse.type("\x7f!\r");
    browse.expect("done: set");
    EXPECT_THAT(file.read(), testing::HasSubstr(std::string(999, 'd') + "!\n"));
}

TEST_F(BrowseHostile, ShowsAndChangesAValueWithoutAName) {
    file.write("[Velquist]\n\"\"=string:x\n");
    Browsing browse = start();
    browse.expect("\"\"             string  x");
    browse.type("\te!\r");
    browse.expect("{\"\"             string  x!");
    EXPECT_EQ("[Velquist]\n\"\"=string:x!\n", file.read());
}

TEST_F(BrowseHostile, DoesNotLoseDataBelowAKeyNamedLikeTheInvisibleOne) {
    file.write("[Velquist]\n[Velquist/<root>]\n\"a\"=string:x\n");
    Browsing browse = start();
    browse.type("j\te!\r");
    browse.expect("a key must not be named <root>");
    EXPECT_THAT(file.read(), testing::HasSubstr("\"a\"=string:x\n"));
}

TEST_F(BrowseHostile, KeepsBytesThatAreNoCharactersInAnEdit) {
    file.write(
        "[Velquist]\n\"a\"=string:x\x01\xff"
        "y\n");
    Browsing browse = start();
    browse.type("\te");
    browse.expect("a (string): x\\x01\\xFFy");
    browse.type("\x1b[D\x7fz\r");
    browse.expect("x\\x01zy");
    EXPECT_EQ("[Velquist]\n\"a\"=string:x\x01zy\n", file.read());
}

TEST_F(BrowseHostile, TakesTypedCharactersOfAllKinds) {
    Browsing browse = start({"Network"});
    browse.type(
        "\te\x15Gr\xc3\xb6\xc3\x9f"
        "e \xe6\x97\xa5\r");
    browse.expect(
        "Gr\xc3\xb6\xc3\x9f"
        "e \xe6\x97\xa5");
    EXPECT_THAT(file.read(), testing::HasSubstr("Gr\xc3\xb6\xc3\x9f"
                                                "e \xe6\x97\xa5\n"));
}

TEST_F(BrowseHostile, AsksWithALongNameForWhatIsToBeKnown) {
    VQRegLib::CRegLib other(file.path().c_str(), nullptr, VQRegLib::CRegLib::eLocationDefault,
                            nullptr);
    const std::string name = "Begin" + std::string(500, 'k') + "End";
    file.write("[Velquist]\n[Velquist/" + name + "]\n\"a\"=string:x\n");
    // In less, the beginning of the name depends on how many digits the process has.
    for (const unsigned short columns : std::initializer_list<unsigned short>{52, 80, 120}) {
        Browsing browse = start({name}, {.rows = 14, .columns = columns});
        browse.type("d");
        browse.expect("[y/N]");
        std::string question;
        for (const std::string& row : browse.screen().rows()) {
            question += row;
        }
        question.erase(std::remove(question.begin(), question.end(), ' '), question.end());
        EXPECT_THAT(question, testing::HasSubstr("Deletethekey\"Begink"));
        EXPECT_THAT(question, testing::HasSubstr("End\"with0keysand1valuebelowit?Itcomesback"));
        EXPECT_THAT(question, testing::HasSubstr(std::to_string(::getpid()) + "(browse).[y/N]"));
    }
}
