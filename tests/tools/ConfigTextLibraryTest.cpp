// What the command makes of a text against what the library makes of it.
#include <VQRegLib.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/TempStore.h"
#include "tools/vqreg/text/ConfigReader.h"
#include "tools/vqreg/text/ConfigText.h"

using namespace vqreg;
using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

namespace {

Value readValue(CRegLib& session, CRegKey& key, const std::string& name) {
    Value value;
    value.name = name;
    std::vector<unsigned char> buffer(8192);
    unsigned long size = buffer.size();
    EXPECT_EQ(VQRegLib::REGLIB_OK,
              session.VQRegQueryValue(key, name.c_str(), value.type, buffer.data(), &size));
    const std::string bytes(reinterpret_cast<const char*>(buffer.data()), size);
    if (value.type == CRegLib::eDword) {
        bytes.copy(reinterpret_cast<char*>(&value.number), sizeof value.number);
    } else {
        value.bytes = value.type == CRegLib::eString ? bytes.substr(0, size - 1) : bytes;
    }
    return value;
}

Key readTree(CRegLib& session, CRegKey& key, const std::string& keyName) {
    Key tree;
    tree.name = keyName;
    std::string name;
    CRegLib::eDataType type = CRegLib::eNone;
    for (int index = 0; session.VQRegEnumValues(key, index, name, type) >= 0; ++index) {
        tree.values.emplace(folded(name), readValue(session, key, name));
    }
    for (int index = 0; session.VQRegEnumKeys(key, index, name) >= 0; ++index) {
        CRegKey child;
        // A name with a backslash cannot be opened.
        const bool isOpen = session.VQRegCreateKey(&key, name.c_str(), child, 0) >= 0;
        Key below;
        if (isOpen) {
            below = readTree(session, child, name);
        }
        below.name = name;
        tree.keys.emplace(folded(name), std::move(below));
    }
    return tree;
}

void expectSameTree(const Key& expected, const Key& actual) {
    EXPECT_EQ(expected.name, actual.name);
    ASSERT_EQ(expected.values.size(), actual.values.size()) << expected.name;
    ASSERT_EQ(expected.keys.size(), actual.keys.size()) << expected.name;
    for (const auto& [name, value] : expected.values) {
        ASSERT_TRUE(actual.values.contains(name)) << name;
        EXPECT_EQ(value.name, actual.values.at(name).name);
        EXPECT_TRUE(value.sameData(actual.values.at(name))) << name;
    }
    for (const auto& [name, key] : expected.keys) {
        ASSERT_TRUE(actual.keys.contains(name)) << name;
        if (name.find('\\') == std::string::npos) {
            expectSameTree(key, actual.keys.at(name));
        }
    }
}

// A change that leaves the tree as it was, in one write.
void writeHarmlessly(CRegLib& session) {
    VQRegLib::CRegUpdate update(session);
    {
        CRegKey key;
        ASSERT_EQ(VQRegLib::REGLIB_OK, session.VQRegCreateKey(nullptr, "zz harmless", key, 1));
    }
    ASSERT_EQ(VQRegLib::REGLIB_OK, session.VQRegDeleteKey(*session.RootKey(), "zz harmless"));
    ASSERT_EQ(VQRegLib::REGLIB_OK, update.end());
}

const std::string kRootLine = "[Velquist]\n";

class ConfigTextLibraryTest : public testing::Test {
protected:
    void expectAgreement(const std::string& text) {
        SCOPED_TRACE(testing::PrintToString(text));
        file.write(text);
        // A store whose file is malformed cannot be opened.
        CRegLib session(file.path().c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
        const ConfigText parsed = parseConfigText(text);
        ASSERT_EQ(parsed.isReadable(), session.RootKey() != nullptr);
        if (!parsed.isReadable()) {
            EXPECT_EQ(text, file.read());
            return;
        }
        // The library adds its root key where the file has none.
        const bool hasRoot = parsed.top.keys.contains("velquist");
        ConfigReader reader;
        const std::string end = text.empty() || text.ends_with('\n') ? "" : "\n";
        reader.read(hasRoot ? text : text + end + kRootLine);
        const Key top = reader.takeTop();
        const Key& root = top.keys.at("velquist");
        expectSameTree(root, readTree(session, *session.RootKey(), root.name));
        writeHarmlessly(session);
        EXPECT_EQ(reader.nextText(), file.read());
        if (parsed.findings.empty() && hasRoot) {
            EXPECT_EQ(composeConfigText(parsed.top), file.read());
            EXPECT_TRUE(parseConfigText(file.read()).findings.empty());
            ++cleanTexts;
        }
        ++readableTexts;
    }

    vqtest::TempStore file;
    int readableTexts = 0;
    int cleanTexts = 0;
};

std::string ofLength(std::size_t length) {
    const std::string head = "\"Long\"=string:";
    return head + std::string(length - head.size(), 'x');
}

// Texts from pieces that readers trip over.
class TextMaker {
public:
    explicit TextMaker(std::uint32_t seed) : m_random(seed) {}

    std::string make() {
        const bool isTame = below(4) == 0;
        std::string text = below(3) == 0 ? "" : kRootLine;
        const unsigned lines = below(12);
        for (unsigned i = 0; i < lines; ++i) {
            text += isTame ? tameLine() : wildLine();
        }
        return text;
    }

private:
    unsigned below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }

    template <std::size_t size>
    std::string one(const char* const (&list)[size]) {
        return list[below(size)];
    }

    std::string name() {
        static constexpr const char* kNames[] = {"a", "A", "b", "Net", "net", "Dns", "x y", "z=w"};
        return one(kNames);
    }

    std::string tameLine() {
        static constexpr const char* kPaths[] = {"[Velquist]", "[Velquist/Net]", "[Velquist/b]",
                                                 "[Velquist/Net/a]"};
        static constexpr const char* kData[] = {"dword:0000001F", "string:", "string:a:b\"=c",
                                                "binary:00FF10",  "binary:", "string:[x]"};
        return (below(3) == 0 ? one(kPaths) : "\"" + name() + "\"=" + one(kData)) + "\n";
    }

    std::string wildKeyLine() {
        static constexpr const char* kParts[] = {
            "Velquist", "/", "/Net", "/net",   "/a", "velquist", "/b",   "//",  "\\",
            "]",        "[", " ",    "<root>", "/x", "/DNS",     "/Dns", "/z=w"};
        std::string line = below(8) == 0 ? "[" : "[Velquist";
        for (unsigned i = below(4); i > 0; --i) {
            line += one(kParts);
        }
        return line + (below(20) == 0 ? "" : "]") + (below(20) == 0 ? "rest" : "");
    }

    std::string wildValueLine() {
        static constexpr const char* kNames[] = {"a", "a:b", "a\"", "", "NET", "dns", "velquist"};
        static constexpr const char* kTypes[] = {"dword:", "string:", "binary:", "Dword:", "word:"};
        static constexpr const char* kData[] = {
            "",     "1F",  "0000001F", "-1", "+0x1F", "0x",  " 7",   "12345678 9", "gg",
            "0g10", "0 1", "\t\v1-1",  "  ", "00FF1", "a:b", "\"]=", "0x0x",       "-0-1+2"};
        std::string line = below(30) == 0 ? "junk" : "";
        line += "\"" + (below(2) == 0 ? name() : one(kNames)) + "\"=";
        return line + kTypes[below(below(10) == 0 ? 5 : 3)] + one(kData);
    }

    std::string wildLine() {
        static constexpr std::size_t kLengths[] = {2045, 2046, 2047, 2048, 2049, 4095, 4096, 4097};
        std::string line = below(3) == 0 ? wildKeyLine() : wildValueLine();
        if (below(40) == 0) {
            line = ofLength(kLengths[below(8)]);
        } else if (below(60) == 0) {
            line = ofLength(2048) + wildValueLine();
        } else if (below(60) == 0) {
            line = ofLength(2048) + wildKeyLine();
        } else if (below(30) == 0) {
            line.insert(below(static_cast<unsigned>(line.size()) + 1), 1,
                        "\r\0\n\"[]:=/ "[below(10)]);
        }
        static constexpr const char* kEnds[] = {"\r\n", "", "\n\n", "\r\r\n", "\r"};
        return line + (below(25) == 0 ? one(kEnds) : "\n");
    }

    std::mt19937 m_random;
};

}  // namespace

TEST_F(ConfigTextLibraryTest, AgreesOnTextsMadeByHand) {
    const std::string key = kRootLine;
    const std::vector<std::string> texts = {
        "",
        "\n",
        key,
        "[Velquist]",
        key + "\n",
        key + "\"a\"=dword:00000001",
        key + "\"a\"=dword:00000001\r\n",
        key + "\"a\"=string:x\ry\n",
        key + std::string("\"a\"=string:x\0y\n", 16),
        key + std::string("\0\n", 2),
        key + "\r\n",
        "\"a\"=dword:00000001\n",
        "[]\n",
        "[]\n\"a\"=dword:00000001\n",
        "[\n",
        "[Velquist/\n",
        "[/]\n\"a\"=string:x\n",
        "[//a]\n\"a\"=string:x\n",
        "[Velquist/]\n",
        "[Velquist]]\n",
        "[Velquist] trailing\n",
        "[velquist]\n\"A\"=string:x\n\"a\"=string:y\n",
        "[Velquist/a/b]\n\"x\"=string:1\n[Velquist/a]\n\"y\"=string:2\n",
        key + "\"a\"=string:x\n[Velquist/a]\n\"b\"=string:y\n[Velquist/a/c]\n\"d\"=string:z\n",
        key + "\"a\"=string:x\n[Velquist/a]\n\"b\"=string:y\n" + key + "\"a\"=string:new\n",
        "[Velquist/a]\n\"b\"=string:y\n" + key + "\"a\"=string:x\n[Velquist/a]\n\"c\"=string:z\n",
        "[Velquist/<root>]\n\"b\"=string:y\n[Velquist/<root>/x]\n",
        "[Velquist/a\\b]\n\"b\"=string:y\n",
        "[Other]\n\"b\"=string:y\n[Other/Velquist]\n",
        key + "\"a:b\"=string:x\n",
        key + "x:y\"a\"=string:x\n",
        key + "\"a\"b\"=string:x\n",
        key + "\"a=string:x\n",
        key + "\"a\"=string\n",
        key + "\"a\"string:x\n",
        key + "\"a\"=String:x\n",
        key + "\"a\"= string:x\n",
        key + "\"\"=string:\n",
        key + "\"a\"=binary:123\n\"b\"=binary:1 2 3 4\n\"c\"=binary:xxyy\n\"d\"=binary:-1\n",
        key + "\"a\"=dword:\n\"b\"=dword:-1\n\"c\"=dword:123456789\n\"d\"=dword:  0x10\n",
        "\xEF\xBB\xBF[Velquist]\n",
        key + " [Velquist/a]\n",
        key + "# comment\n",
    };
    for (const std::string& text : texts) {
        expectAgreement(text);
    }
}

TEST_F(ConfigTextLibraryTest, AgreesOnLongLines) {
    for (std::size_t length = 2044; length <= 2051; ++length) {
        for (const char* const end : {"", "\n", "\r\n", "\r", "\n\n"}) {
            expectAgreement(kRootLine + ofLength(length) + end);
            expectAgreement(kRootLine + ofLength(length) + end + "\"a\"=string:x\n");
        }
    }
    expectAgreement(kRootLine + ofLength(2048) + "\"b\"=string:x\n\"c\"=string:y\n");
    expectAgreement(kRootLine + ofLength(2048) + "[Velquist/a]\n\"c\"=string:y\n");
    expectAgreement(kRootLine + ofLength(2048) + ofLength(2048) + ofLength(2047) + "\n");
    expectAgreement(kRootLine + ofLength(2048) + ofLength(2048) + ofLength(2048) + "\n");
    expectAgreement("[" + std::string(2047, 'a') + "]\n");
    expectAgreement("[" + std::string(2045, 'a') + "]\n\"c\"=string:y\n");
}

TEST_F(ConfigTextLibraryTest, AgreesOnRandomTexts) {
    TextMaker maker(20240607);
    for (int i = 0; i < 3000 && !HasFatalFailure() && !HasNonfatalFailure(); ++i) {
        expectAgreement(maker.make());
    }
    EXPECT_GT(readableTexts, 500);
    EXPECT_GT(cleanTexts, 100);
}
