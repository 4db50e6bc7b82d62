// What vqreg refuses to write because the file could not give it back.
#include "tools/VqregStore.h"

using vqtest::fails;
using vqtest::prints;

class Refusal : public vqtest::VqregStore {
protected:
    Refusal() { file.write(kText); }
    ~Refusal() override { EXPECT_EQ(file.read(), kText); }

    static constexpr const char* kText = "[Velquist]\n[Velquist/K]\n\"V\"=string:x\n";
};

TEST_F(Refusal, LineEndsInTexts) {
    EXPECT_EQ(run({"set", "K", "V", "a\nb"}),
              fails(5, R"(a text must not hold a line feed: "a\x0Ab", byte 2)"));
    EXPECT_EQ(run({"set", "K", "V", "\rb"}),
              fails(5, R"(a text must not hold a carriage return: "\x0Db", byte 1)"));
}

TEST_F(Refusal, CharactersInValueNames) {
    EXPECT_EQ(run({"set", "K", "a\"b", "1"}),
              fails(5, "a value name must not hold a double quote: \"a\"b\", byte 2"));
    EXPECT_EQ(run({"set", "K", "a:b", "1"}),
              fails(5, "a value name must not hold a colon: \"a:b\", byte 2"));
    EXPECT_EQ(run({"set", "K", "a\n", "1"}),
              fails(5, R"(a value name must not hold a line feed: "a\x0A", byte 2)"));
    EXPECT_EQ(run({"set", "K", "\r", "1"}),
              fails(5, R"(a value name must not hold a carriage return: "\x0D", byte 1)"));
}

TEST_F(Refusal, CharactersInKeyNames) {
    EXPECT_EQ(run({"mkkey", "A/b]"}),
              fails(5, R"(a key name must not hold a closing bracket: "b]", byte 2, in the path )"
                       R"("A/b]")"));
    EXPECT_EQ(
        run({"mkkey", "a\\b"}),
        fails(5, R"(a key name must not hold a backslash: "a\b", byte 2, in the path "a\b")"));
    EXPECT_EQ(run({"set", "a\nb", "V", "1"}).status, 5);
    EXPECT_EQ(run({"set", "a\rb", "V", "1"}).status, 5);
    EXPECT_EQ(run({"mkkey", "a//b"}),
              fails(5, "a key name must not be empty, in the path \"a//b\""));
    EXPECT_EQ(run({"mkkey", "a/"}), fails(5, "a key name must not be empty, in the path \"a/\""));
    EXPECT_EQ(run({"mkkey", "a/<root>"}),
              fails(5, "a key must not be named <root>, in the path \"a/<root>\""));
    EXPECT_EQ(run({"set", "", "V", "1"}),
              fails(5, "a key name must not be empty; the root key is \"/\""));
}

TEST_F(Refusal, RootNames) {
    EXPECT_EQ(run({"--root", "a]", "set", "K", "V", "1"}),
              fails(5, "--root: a key name must not hold a closing bracket: \"a]\", byte 2"));
    EXPECT_EQ(run({"--root", "", "set", "K", "V", "1"}),
              fails(5, "--root: a key name must not be empty"));
    EXPECT_EQ(run({"--root", "/", "set", "K", "V", "1"}).status, 5);
    EXPECT_EQ(run({"--root", "A\\B", "set", "K", "V", "1"}).status, 5);
}

TEST_F(Refusal, LinesThatAreTooLong) {
    const std::string quoted(60, 'x');
    EXPECT_EQ(run({"set", "K", "V", std::string(2037, 'x')}),
              fails(5,
                    "a line must not be longer than 2047 bytes: the value \"V\" would take "
                    "2048"));
    EXPECT_EQ(run({"set", "-t", "binary", "K", "V", std::string(2038, '0')}).status, 5);
    EXPECT_EQ(run({"set", "K", std::string(2032, 'x'), "1"}),
              fails(5, "a line must not be longer than 2047 bytes: the value \"" + quoted +
                           "...\" would take 2049"));
    EXPECT_EQ(run({"mkkey", std::string(2037, 'x')}),
              fails(5, "a line must not be longer than 2047 bytes: the key \"Velquist/" +
                           quoted.substr(9) + "...\" would take 2048"));
    EXPECT_EQ(run({"mkkey", "A/" + std::string(1018, 'x') + "/" + std::string(1018, 'x')}).status,
              5);
}

TEST_F(Refusal, NamesOfTheOtherKind) {
    EXPECT_EQ(run({"set", "/", "k", "1"}),
              fails(5, "\"k\" is a sub key of the root key, not a value"));
    EXPECT_EQ(run({"mkkey", "K/v"}), fails(5, "\"v\" is a value of the key \"K\", not a key"));
    EXPECT_EQ(run({"set", "K/v/x", "V", "1"}),
              fails(5, "\"v\" is a value of the key \"K\", not a key"));
}

// Nothing of a change stays when its end is refused: the key of the value is not made either.
TEST_F(Refusal, KeysOfRefusedCopies) {
    EXPECT_EQ(run({"cp", "K", "V", "New", "a:b"}).status, 5);
    EXPECT_EQ(run({"mv", "K", "V", "New/a]", "b"}).status, 5);
    EXPECT_EQ(run({"mv", "K", "V", "/", "K"}).status, 5);
    EXPECT_EQ(run({"mv", "K", "L/" + std::string(2040, 'x')}).status, 5);
}

class Limit : public vqtest::VqregStore {};

TEST_F(Limit, LongestLinesComeBack) {
    const std::string text(2036, 'x');
    make({"set", "K", "V", text});
    EXPECT_EQ(run({"get", "K", "V"}), prints(text + "\n"));
    const std::string key(2036, 'k');
    make({"set", key, "V", "1"});
    EXPECT_EQ(run({"get", key, "V"}), prints("1\n"));
    EXPECT_EQ(run({"ls"}), prints("K/\n" + key + "/\n"));
}

TEST_F(Limit, OddCharactersThatComeBack) {
    const std::string name = "a=b [c] \\ / ' ;#\t\xff";
    const std::string text = " \"x\":[y]=\\/ \t\xc3\xa4\xff ";
    make({"set", "a=[b", name, text});
    EXPECT_EQ(run({"get", "a=[b", name}), prints(text + "\n"));
    make({"set", "K", "", "empty name"});
    EXPECT_EQ(run({"get", "K", ""}), prints("empty name\n"));
    make({"set", "K", "Empty", ""});
    EXPECT_EQ(run({"get", "K", "Empty"}), prints("\n"));
}
