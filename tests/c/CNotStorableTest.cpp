// Why the file could not give back a name or a value, told before anybody tries.
#include <unistd.h>

#include <string_view>

#include "c/CStoreFixture.h"

namespace {

class CNotStorable : public vqtest::CStoreTest {
protected:
    // The sentence for a key, or for a value of it. It agrees with what an attempt gives.
    std::string why(const char* path, const char* name, vqreg_type type, std::string_view data) {
        char text[256] = "untouched";
        const size_t length = vqreg_why_not_storable(store, path, name, type, data.data(),
                                                     data.size(), text, sizeof text);
        EXPECT_EQ(length, std::strlen(text));
        return text;
    }
    std::string whyNoKey(const char* path) { return why(path, nullptr, VQREG_NONE, {}); }
    std::string whyNoText(std::string_view data) { return why("K", "n", VQREG_STRING, data); }
    std::string whyNoName(const char* name) { return why("K", name, VQREG_STRING, "x"); }
};

}  // namespace

TEST_F(CNotStorable, NothingIsSaidOfWhatTheFileHolds) {
    EXPECT_EQ(whyNoKey(nullptr), "");
    EXPECT_EQ(whyNoKey(""), "");
    EXPECT_EQ(whyNoKey("/A/b c\\\"d\":"), "");
    EXPECT_EQ(whyNoText("a]b\"c:d\\e/f\xFF\x01"), "");
    EXPECT_EQ(whyNoName("a]b/c\\d"), "");
    EXPECT_EQ(why("", "n", VQREG_BINARY, std::string_view("\0\n\r", 3)), "");
    EXPECT_EQ(why("", "n", VQREG_DWORD, std::string_view("\n\0\0\0", 4)), "");
    EXPECT_EQ(why("", "n", VQREG_BINARY, {}), "");
    EXPECT_EQ(file.read(), "[Velquist]\n");
}

TEST_F(CNotStorable, NamesTheByteOfAText) {
    EXPECT_EQ(whyNoText("a\nb"), "a text must not hold a line feed: byte 2");
    EXPECT_EQ(whyNoText("\r"), "a text must not hold a carriage return: byte 1");
    EXPECT_EQ(whyNoText(std::string_view("abc\0", 4)), "a text must not hold a NUL: byte 4");
    EXPECT_EQ(whyNoText("\xC3\xA4\n"), "a text must not hold a line feed: byte 3");
}

TEST_F(CNotStorable, NamesTheByteOfAName) {
    EXPECT_EQ(whyNoName("a\"b"), "a value name must not hold a double quote: byte 2");
    EXPECT_EQ(whyNoName("abc:"), "a value name must not hold a colon: byte 4");
    EXPECT_EQ(whyNoName("\nab"), "a value name must not hold a line feed: byte 1");
    EXPECT_EQ(whyNoKey("Network/a]"), "a key name must not hold a closing bracket: byte 2");
    EXPECT_EQ(whyNoKey("a\rb"), "a key name must not hold a carriage return: byte 2");
    EXPECT_EQ(whyNoKey("a//b"), "a key name must not be empty");
    EXPECT_EQ(whyNoKey("a/"), "a key name must not be empty");
    EXPECT_EQ(whyNoKey("a/<root>"), "a key must not be named <root>");
    EXPECT_EQ(why("a]", "b", VQREG_DWORD, std::string_view("\1\0\0\0", 4)),
              "a key name must not hold a closing bracket: byte 2");
}

// `"n"=string:` and a text, `"n"=binary:` and two letters for each byte, `[Velquist/` and a path and `]`.
TEST_F(CNotStorable, TellsHowLongALineWouldBe) {
    const std::string text(2047 - 11, 'x');
    EXPECT_EQ(whyNoText(text), "");
    EXPECT_EQ(whyNoText(text + 'x'), "its line would take 2048 bytes, and may take 2047");
    const std::string bytes(1018, 'x');
    EXPECT_EQ(why("", "n", VQREG_BINARY, bytes), "");
    EXPECT_EQ(why("", "n", VQREG_BINARY, bytes + 'x'),
              "its line would take 2049 bytes, and may take 2047");
    const std::string path(2047 - 11, 'x');
    EXPECT_EQ(whyNoKey(path.c_str()), "");
    EXPECT_EQ(whyNoKey((path + 'x').c_str()), "its line would take 2048 bytes, and may take 2047");
}

// What is told is what happens.
TEST_F(CNotStorable, AgreesWithTheAttempt) {
    const std::string path(2047 - 11, 'x');
    EXPECT_EQ(vqreg_create_key(store, path.c_str()), VQREG_OK);
    EXPECT_EQ(vqreg_create_key(store, (path + 'x').c_str()), VQREG_E_NOT_STORABLE);
    EXPECT_EQ(vqreg_create_key(store, "a]"), VQREG_E_NOT_STORABLE);
    const std::string text(2047 - 11, 'x');
    EXPECT_EQ(vqreg_set_string(store, "", "n", text.c_str()), VQREG_OK);
    EXPECT_EQ(vqreg_set_string(store, "", "n", (text + 'x').c_str()), VQREG_E_NOT_STORABLE);
    const std::string bytes(1018, 'x');
    EXPECT_EQ(vqreg_set_binary(store, "", "n", bytes.data(), 1018), VQREG_OK);
    EXPECT_EQ(vqreg_set_binary(store, "", "n", bytes.data(), 1019), VQREG_E_NOT_STORABLE);
    EXPECT_EQ(vqreg_set_dword(store, "", "n:", 1), VQREG_E_NOT_STORABLE);
}

// A longer name of the root key leaves less for the rest.
TEST_F(CNotStorable, CountsTheNameOfTheRootKey) {
    const std::string path(2047 - 11, 'x');
    vqreg_store* const other = vqreg_open(file.path().c_str(), "Velquist2", nullptr);
    ASSERT_NE(other, nullptr);
    const auto lengthFor = [&](const vqreg_store* asked) {
        return vqreg_why_not_storable(asked, path.c_str(), nullptr, VQREG_NONE, nullptr, 0, nullptr,
                                      0);
    };
    EXPECT_EQ(lengthFor(store), 0u);
    EXPECT_GT(lengthFor(other), 0u);
    EXPECT_EQ(lengthFor(nullptr), 0u);
    vqreg_close(other);
}

TEST(CNotStorableAnywhere, IsToldWithoutAStore) {
    char text[128] = "";
    EXPECT_GT(vqreg_why_not_storable(nullptr, "a", "b", VQREG_STRING, "\n", 1, text, sizeof text),
              0u);
    EXPECT_STREQ(text, "a text must not hold a line feed: byte 1");
    const std::string path(2047 - 10, 'x');
    EXPECT_GT(vqreg_why_not_storable(nullptr, path.c_str(), nullptr, VQREG_NONE, nullptr, 0, text,
                                     sizeof text),
              0u);
    EXPECT_STREQ(text, "its line would take 2048 bytes, and may take 2047");
    EXPECT_NE(::access("/etc/Velquist.cfg", F_OK), 0);
}

TEST_F(CNotStorable, GivesWhatFitsAndNeedsItsArguments) {
    char text[10] = "";
    const size_t length =
        vqreg_why_not_storable(store, "a]", nullptr, VQREG_NONE, nullptr, 0, text, sizeof text);
    EXPECT_EQ(length, std::strlen("a key name must not hold a closing bracket: byte 2"));
    EXPECT_STREQ(text, "a key nam");
    EXPECT_EQ(vqreg_why_not_storable(store, "a]", nullptr, VQREG_NONE, nullptr, 0, nullptr, 0),
              length);
    EXPECT_GT(vqreg_why_not_storable(store, "a", "b", VQREG_STRING, nullptr, 1, nullptr, 0), 0u);
}
