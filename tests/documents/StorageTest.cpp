// What the file format cannot store, row by row of its table: each input is stored through the
// library and read back by a store that has never seen it, before and after the next change.
#include <VQRegLib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "documents/Documents.h"

using testing::HasSubstr;
using VQRegLib::CRegKey;
using VQRegLib::CRegLib;
using vqtest::projectPath;

namespace {

const char* const kMalformed = "malformed";
constexpr int kNotAKey = VQRegLib::REGLIB_E_NOT_A_KEY;
constexpr int kNotAValue = VQRegLib::REGLIB_E_NOT_A_VALUE;

// A number or the first bytes of a text.
std::string dataOf(CRegLib& session, CRegKey& key, const std::string& name) {
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned char data[4096];
    unsigned long size = sizeof data;
    const int code = session.VQRegQueryValue(key, name.c_str(), type, data, &size);
    if (code < 0 || type == CRegLib::eBinary) {
        return code < 0 ? "failed" : "bytes";
    }
    if (type == CRegLib::eDword) {
        std::uint32_t number = 0;
        std::memcpy(&number, data, sizeof number);
        return std::to_string(number);
    }
    return std::string(reinterpret_cast<const char*>(data)).substr(0, 20);
}

// What is below a key: "value=data ", then "key{...} ".
std::string below(CRegLib& session, CRegKey& key) {
    std::string text;
    std::string name;
    CRegLib::eDataType type = CRegLib::eNone;
    for (int index = 0; session.VQRegEnumValues(key, index, name, type) >= 0; ++index) {
        text += name + '=' + dataOf(session, key, name) + ' ';
    }
    for (int index = 0; session.VQRegEnumKeys(key, index, name) >= 0; ++index) {
        CRegKey child;
        const int code = session.VQRegCreateKey(&key, name.c_str(), child, 0);
        text += name + '{' + (code < 0 ? "not found" : below(session, child)) + "} ";
    }
    return text;
}

int set(CRegLib& session, const std::string& path, const char* name, const std::string& text) {
    CRegKey key;
    const int code = session.VQRegCreateKey(nullptr, path.c_str(), key, 1);
    return code < 0 ? code : session.VQRegSetValue(key, name, text.c_str());
}

int setAtRoot(CRegLib& session, const char* name, const std::string& text) {
    return session.VQRegSetValue(*session.RootKey(), name, text.c_str());
}

struct Case {
    const char* input;    // its row's first column
    const char* outcome;  // the first word of the row's last column
    std::function<int(CRegLib&)> store;
    const char* found;  // by a store that opens the file later
    int code = VQRegLib::REGLIB_OK;
    const char* root = nullptr;
};

using S = CRegLib;

const std::vector<Case> kCases = {
    {"CR in a text", "lost", [](S& s) { return setAtRoot(s, "a", "x\ry"); }, "a=x "},
    {"LF in a text", "malformed", [](S& s) { return setAtRoot(s, "a", "x\ny"); }, kMalformed},
    {"LF in a text", "malformed", [](S& s) { return setAtRoot(s, "a", "x\r\ny"); }, kMalformed},
    {"LF before what looks like a line, in a text", "moved",
     [](S& s) {
         setAtRoot(s, "a", "x\n\"b\"=string:y\n[Velquist/k]");
         return setAtRoot(s, "c", "z");
     },
     "a=x b=y k{c=z } "},
    {"CR or LF in a name", "malformed", [](S& s) { return set(s, "a\rb", "v", "x"); }, kMalformed},
    {"CR or LF in a name", "malformed", [](S& s) { return set(s, "a\nb", "v", "x"); }, kMalformed},
    {"CR or LF in a name", "malformed", [](S& s) { return setAtRoot(s, "a\rb", "x"); }, kMalformed},
    {"CR or LF in a name", "malformed", [](S& s) { return setAtRoot(s, "a\nb", "x"); }, kMalformed},
    {"a line above 2047 bytes", "malformed",
     [](S& s) { return setAtRoot(s, "a", std::string(2048 - 11, 'x')); }, kMalformed},
    {"a line above 2047 bytes", "malformed",
     [](S& s) { return set(s, std::string(2048 - 11, 'x'), "v", "x"); }, kMalformed},
    {"`\"` in a value name", "malformed", [](S& s) { return setAtRoot(s, "a\"b", "x"); },
     kMalformed},
    {"`\"=string:` in a value name", "wrong",
     [](S& s) { return setAtRoot(s, "a\"=string:b", "x"); }, "a=b\"=string:x "},
    {"`:` in a value name", "wrong",
     [](S& s) {
         s.VQRegSetValue(*s.RootKey(), "c:d", 7ul);
         return setAtRoot(s, "a:b", "x");
     },
     "a:b=b\"=string:x c:d=13 "},
    {"`]` in a key name", "moved",
     [](S& s) {
         set(s, "a", "v", "old");
         set(s, "a]b", "v", "new");
         set(s, "a]b/c", "w", "x");
         return set(s, "k/]b", "u", "y");
     },
     "a{v=new w=x } k{u=y } "},
    {"`/` or `\\` in a key name", "split", [](S& s) { return set(s, "a/b\\c", "v", "x"); },
     "a{b{c{v=x } } } "},
    {"an empty last key name: `App/`", "moved",
     [](S& s) {
         set(s, "App", "v", "old");
         set(s, "App/", "w", "x");
         return set(s, "App/", "v", "new");
     },
     "App{v=new w=x } "},
    {"an empty key name before others: `App//a`", "moved",
     [](S& s) {
         set(s, "App//a", "v", "x");
         return set(s, "App/", "w", "y");
     },
     "App{w=y {a{v=x } } } "},
    {"a key called `<root>`", "moved",
     [](S& s) {
         set(s, "App", "v", "old");
         set(s, "App/<root>", "v", "new");
         return set(s, "App/<root>/k", "w", "x");
     },
     "App{v=new k{w=x } } "},
    {"a key called `<root>`", "moved",
     [](S& s) {
         set(s, "1", "v", "old");
         return set(s, "<root>", "v", "new");
     },
     "1{v=new } "},
    {"a value with the name of a sub key", "refused",
     [](S& s) {
         set(s, "k/a", "v", "x");
         return set(s, "k", "A", "y");
     },
     "k{a{v=x } } ", kNotAValue},
    {"a sub key with the name of a value", "refused",
     [](S& s) {
         set(s, "k", "a", "x");
         return set(s, "k/A", "v", "y");
     },
     "k{a=x } ", kNotAKey},
    {"a root key that is empty, is called `<root>` or begins with `]`", "malformed",
     [](S& s) { return setAtRoot(s, "a", "x"); }, kMalformed, 0, ""},
    {"a root key that is empty, is called `<root>` or begins with `]`", "malformed",
     [](S& s) { return setAtRoot(s, "a", "x"); }, kMalformed, 0, "<root>"},
    {"a root key that is empty, is called `<root>` or begins with `]`", "malformed",
     [](S& s) { return setAtRoot(s, "a", "x"); }, kMalformed, 0, "]b"},
};

// What a store finds that has not seen the file before.
std::string found(const vqtest::TempStore& file, const char* root) {
    CRegLib session(file.path().c_str(), root, CRegLib::eLocationDefault, nullptr);
    return session.RootKey() ? below(session, *session.RootKey()) : kMalformed;
}

// A change of something else by such a store, which writes the whole file again.
void writeAgain(const vqtest::TempStore& file, const char* root) {
    CRegLib session(file.path().c_str(), root, CRegLib::eLocationDefault, nullptr);
    ASSERT_NE(session.RootKey(), nullptr);
    ASSERT_EQ(setAtRoot(session, "~", ""), VQRegLib::REGLIB_OK);
    ASSERT_EQ(session.VQRegDeleteValue(*session.RootKey(), "~"), VQRegLib::REGLIB_OK);
}

// The rows of the table below a heading: the first column, and the first word of the last one.
std::map<std::string, std::string> tableOf(const vqtest::Document& document,
                                           const std::string& heading) {
    std::map<std::string, std::string> rows;
    bool isInside = false;
    for (const std::string& line : document.lines()) {
        if (line.starts_with("#")) {
            isInside = line.ends_with(heading);
        } else if (isInside && line.starts_with("| ") && !line.starts_with("| input")) {
            const std::string first = line.substr(2, line.find(" | ") - 2);
            const std::string last = line.substr(line.rfind(" | ") + 3);
            rows[first] = last.substr(0, last.find_first_of(" ,:|"));
        }
    }
    return rows;
}

}  // namespace

TEST(WhatCannotBeStored, IsListedWithWhatBecomesOfIt) {
    std::map<std::string, std::string> expected;
    for (const Case& each : kCases) {
        expected[each.input] = each.outcome;
    }
    const vqtest::Document page = vqtest::readDocument(projectPath() / "docs/file-format.md");
    EXPECT_EQ(tableOf(page, "What cannot be stored"), expected);
}

TEST(WhatCannotBeStored, IsFoundByOthersAsListed) {
    for (const Case& each : kCases) {
        SCOPED_TRACE(each.input);
        const vqtest::TempStore file;
        {
            CRegLib session(file.path().c_str(), each.root, CRegLib::eLocationDefault, nullptr);
            ASSERT_NE(session.RootKey(), nullptr);
            EXPECT_EQ(each.store(session), each.code);
        }
        EXPECT_EQ(std::string(each.outcome) == kMalformed, std::string(each.found) == kMalformed);
        EXPECT_EQ(found(file, each.root), each.found);
        if (each.outcome != std::string(kMalformed)) {
            writeAgain(file, each.root);
            EXPECT_EQ(found(file, each.root), each.found);
        }
    }
}

// The pieces of a long line may be good lines, but the first is too long again with its line end.
TEST(WhatCannotBeStored, LongLinesAreMalformedAtTheLatestWhenWrittenAgain) {
    const vqtest::TempStore file;
    {
        CRegLib session(file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
        const std::string text = std::string(2048 - 11, 'x') + "\"b\"=string:y";
        ASSERT_EQ(setAtRoot(session, "a", text), VQRegLib::REGLIB_OK);
    }
    EXPECT_EQ(found(file, nullptr), "a=xxxxxxxxxxxxxxxxxxxx b=y ");
    writeAgain(file, nullptr);
    EXPECT_EQ(found(file, nullptr), kMalformed);
}

// What only an editor, or a merge of two processes, brings about.
TEST(WhatCannotBeStored, IsReadFromAFileChangedByHandAsThePageSays) {
    struct {
        const char* lines;
        const char* found;
        const char* written;
    } const cases[] = {
        {"[Velquist/a\\b]\n\"v\"=string:x\n", "a\\b{not found} ",
         "[Velquist/a\\b]\n\"v\"=string:x\n"},
        {"\"a\"=string:x\n[Velquist/a]\n\"v\"=string:y\n[Velquist/a/k]\n", "a=x ",
         "\"a\"=string:x\n"},
        {"[Velquist/a]\n\"v\"=string:y\n[Velquist]\n\"A\"=string:x\n", "A=x ", "\"A\"=string:x\n"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.lines);
        const vqtest::TempStore file;
        file.write(std::string("[Velquist]\n") + each.lines);
        EXPECT_EQ(found(file, nullptr), each.found);
        writeAgain(file, nullptr);
        EXPECT_EQ(file.read(), std::string("[Velquist]\n") + each.written);
    }
}

// The other pages that warn of it say as well that most of it goes unnoticed.
TEST(WhatCannotBeStored, IsToldWhereverItIsMentioned) {
    struct {
        const char* page;
        const char* from;
        const char* to;
    } const places[] = {
        {"README.md", "\n## Limits\n", "\n- A change rewrites"},
        {"docs/user-guide.md", "\n### What a text or a name must not hold\n", "\n### "},
        {"docs/man/velquist.cfg.5", "\n.SS What cannot be stored\n", "\n.SS "},
    };
    for (const auto& place : places) {
        SCOPED_TRACE(place.page);
        const std::string text = vqtest::readFile((projectPath() / place.page).string());
        const std::size_t begin = text.find(place.from);
        ASSERT_NE(begin, std::string::npos);
        const std::size_t end = text.find(place.to, begin + 1);
        ASSERT_NE(end, std::string::npos);
        const std::string section = text.substr(begin, end - begin);
        for (const char* const word : {"<root>", "empty", "malformed", "silently", "\\"}) {
            EXPECT_THAT(section, HasSubstr(word));
        }
    }
}
