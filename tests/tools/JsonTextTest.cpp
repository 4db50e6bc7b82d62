// Trees as JSON and back.
#include "tools/vqreg/text/JsonText.h"

#include <gtest/gtest.h>

#include <string>

#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Difference.h"

using namespace vqreg;
using VQRegLib::CRegLib;

namespace {

Key sample() {
    return parseConfigText(
               "[K]\n"
               "\"Flag\"=binary:00FF\n"
               "\"Port\"=dword:00001F90\n"
               "\"Text\"=string:a \"b\" \\ c\n"
               "[K/Sub]\n"
               "[K/Sub/Leaf]\n"
               "\"x\"=string:\n")
        .top.keys.at("k");
}

std::string fault(const std::string& text) {
    const JsonText parsed = parseJsonText(text);
    return parsed.findings.empty() ? "" : format("", parsed.findings.front()).substr(1);
}

std::string faultOfValue(const std::string& value) {
    return fault("{\"values\": {\"a\": " + value + "}}");
}

}  // namespace

TEST(JsonTextTest, ComposesATree) {
    EXPECT_EQ(
        "{\n"
        "  \"name\": \"K\",\n"
        "  \"key\": \"\",\n"
        "  \"values\": {\n"
        "    \"Flag\": {\"type\":\"binary\",\"value\":\"00FF\"},\n"
        "    \"Port\": {\"type\":\"dword\",\"value\":8080},\n"
        "    \"Text\": {\"type\":\"string\",\"value\":\"a \\\"b\\\" \\\\ c\"}\n"
        "  },\n"
        "  \"keys\": {\n"
        "    \"Sub\": {\n"
        "      \"values\": {},\n"
        "      \"keys\": {\n"
        "        \"Leaf\": {\n"
        "          \"values\": {\n"
        "            \"x\": {\"type\":\"string\",\"value\":\"\"}\n"
        "          },\n"
        "          \"keys\": {}\n"
        "        }\n"
        "      }\n"
        "    }\n"
        "  }\n"
        "}\n",
        composeJsonText(sample(), ""));
}

TEST(JsonTextTest, ReadsWhatItComposes) {
    const std::string text = composeJsonText(sample(), "Network/Dns");
    const JsonText parsed = parseJsonText(text);
    ASSERT_TRUE(parsed.isReadable());
    EXPECT_EQ("K", parsed.key.name);
    EXPECT_EQ("Network/Dns", parsed.path.value());
    EXPECT_EQ(text, composeJsonText(parsed.key, *parsed.path));
}

TEST(JsonTextTest, ReadsTheKeyAndTheOlderPath) {
    EXPECT_EQ("/", parseJsonText("{\"key\": \"\"}").path.value());
    EXPECT_EQ("a/b", parseJsonText("{\"key\": \"a/b\"}").path.value());
    EXPECT_EQ("/.", parseJsonText("{\"key\": \".\"}").path.value()) << "no root key, but a name";
    EXPECT_EQ("/", parseJsonText("{\"path\": \"/\"}").path.value());
    EXPECT_EQ("/.", parseJsonText("{\"path\": \"/.\"}").path.value());
}

TEST(JsonTextTest, KeepsTextsThatAreNotUtf8) {
    Key key;
    key.name = "\xFF";
    for (const std::string name : {"caf\xE9", "hex:/41", "", "\xED\xA0\x80", "\xC3\xA9"}) {
        Value& value = key.values[folded(name)];
        value.name = name;
        value.type = CRegLib::eString;
        value.bytes = name;
        key.keys[folded("k" + name)].name = "k" + name;
    }
    const std::string text = composeJsonText(key, "\xFE");
    EXPECT_NE(std::string::npos, text.find("\"hex:/636166E9\": {\"type\":\"string\",\"value\":"
                                           "\"hex:/636166E9\"}"));
    EXPECT_NE(std::string::npos, text.find("\"\xC3\xA9\": "));
    const JsonText parsed = parseJsonText(text);
    ASSERT_TRUE(parsed.isReadable());
    EXPECT_EQ(key.name, parsed.key.name);
    EXPECT_EQ("\xFE", parsed.path.value());
    EXPECT_TRUE(difference(key, parsed.key).empty());
}

TEST(JsonTextTest, EveryMemberMayBeMissing) {
    EXPECT_EQ("", fault("{}"));
    EXPECT_EQ("", fault("{\"keys\": {\"a\": {}}}"));
    EXPECT_FALSE(parseJsonText("{}").path.has_value());
}

// Where the parser is when the fault shows: at the end of what is wrong.
TEST(JsonTextTest, NamesThePlaceOfAFault) {
    EXPECT_EQ(
        "2:1: error: this is no JSON: syntax error while parsing object key - unexpected end "
        "of input; expected string literal; mend the text here or before",
        fault("{\n"));
    EXPECT_EQ("1:1: error: the text is no tree; write {\"values\": {...}, \"keys\": {...}}",
              fault("[]"));
    EXPECT_EQ("2:8: error: the member \"Keys\" is unknown; remove it",
              fault("{\"keys\": {},\n  \"Keys\": {}}"));
    EXPECT_EQ(
        "1:19: error: the name \"keys\" occurs twice; case makes no difference; remove one "
        "of the two",
        fault("{\"keys\": {}, \"keys\": {}}"));
    EXPECT_EQ(
        "1:22: error: the name \"A\" occurs twice; case makes no difference; remove one of "
        "the two",
        fault("{\"keys\": {\"a\": {}, \"A\": {}}}"));
    EXPECT_EQ("1:20: error: the value \"a\" is no object; write {\"type\": TYPE, \"value\": DATA}",
              fault("{\"values\": {\"a\": 17}}"));
    EXPECT_EQ(
        "1:13: error: \"keys\" has the wrong kind of data; write an object for values and "
        "keys, and a text for name and path",
        fault("{\"keys\": null}"));
    EXPECT_EQ(
        "1:19: error: \"hex:/\" is not followed by pairs of hexadecimal digits; write two "
        "digits for each byte",
        fault("{\"values\":{\"hex:/4\": 0}}"));
}

TEST(JsonTextTest, ChecksValues) {
    const std::string shape = "; write {\"type\": TYPE, \"value\": DATA}";
    EXPECT_EQ("1:15: error: the value \"a\" has no \"type\"" + shape,
              faultOfValue("{\"value\": 1}"));
    EXPECT_EQ("1:15: error: the value \"a\" has no number" + shape,
              faultOfValue("{\"type\": \"dword\", \"value\": \"1\"}"));
    EXPECT_EQ("1:15: error: the value \"a\" has no text" + shape,
              faultOfValue("{\"type\": \"string\", \"value\": 1}"));
    EXPECT_EQ(
        "1:15: error: the value \"a\" has the unknown type \"text\"; write string, dword or "
        "binary",
        faultOfValue("{\"type\": \"text\", \"value\": \"\"}"));
    EXPECT_EQ(
        "1:15: error: the value \"a\" has data that are no pairs of hexadecimal digits; "
        "write two digits for each byte",
        faultOfValue("{\"type\": \"binary\", \"value\": \"0\"}"));
    EXPECT_EQ("1:55: error: a number is too large; write a number from 0 to 4294967295",
              faultOfValue("{\"type\": \"dword\", \"value\": 4294967296}"));
    EXPECT_EQ("1:47: error: a number is negative; write a number from 0 to 4294967295",
              faultOfValue("{\"type\": \"dword\", \"value\": -1}"));
    EXPECT_EQ("1:48: error: a number is not whole; write a number from 0 to 4294967295",
              faultOfValue("{\"type\": \"dword\", \"value\": 1.5 }"));
    EXPECT_EQ("", faultOfValue("{\"value\": 4294967295, \"type\": \"dword\"}"));
}

TEST(JsonTextTest, RefusesKeysThatAreNestedTooDeeply) {
    std::string text = "{";
    for (int i = 0; i < 100000; ++i) {
        text += "\"keys\":{\"a\":{";
    }
    EXPECT_NE(std::string::npos, fault(text).find("keys are nested too deeply"));
}
