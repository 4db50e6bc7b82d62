// vqreg get and set.
#include <fstream>

#include "tools/VqregStore.h"

using vqtest::fails;
using vqtest::prints;

class GetSet : public vqtest::VqregStore {};

TEST_F(GetSet, SetWritesTheFile) {
    make({"set", "Network", "Name", "eth0"});
    make({"set", "Network", "Port", "8080"});
    make({"set", "-t", "binary", "Network", "MacAddr", "0010a4C3f20b"});
    make({"set", "/", "Version", "4.2 build 17"});
    EXPECT_EQ(file.read(),
              "[Velquist]\n\"Version\"=string:4.2 build 17\n"
              "[Velquist/Network]\n\"MacAddr\"=binary:0010A4C3F20B\n\"Name\"=string:eth0\n"
              "\"Port\"=dword:00001F90\n");
}

TEST_F(GetSet, GetPrintsData) {
    make({"set", "A/B", "Text", "two words"});
    make({"set", "A/B", "Number", "4294967295"});
    make({"set", "-t", "binary", "A/B", "Bytes", "00ff"});
    EXPECT_EQ(run({"get", "A/B", "Text"}), prints("two words\n"));
    EXPECT_EQ(run({"get", "/a/b", "TEXT"}), prints("two words\n"));
    EXPECT_EQ(run({"get", "A/B", "Number"}), prints("4294967295\n"));
    EXPECT_EQ(run({"get", "A/B", "Bytes"}), prints("00FF\n"));
}

TEST_F(GetSet, GetPrintsTypesRawDataAndJson) {
    make({"set", "A", "Text", "x"});
    make({"set", "A", "Number", "7"});
    make({"set", "-t", "binary", "A", "Bytes", "0061"});
    EXPECT_EQ(run({"get", "--type", "A", "Text"}), prints("string\n"));
    EXPECT_EQ(run({"get", "--type", "A", "Number"}), prints("dword\n"));
    EXPECT_EQ(run({"get", "--type", "A", "Bytes"}), prints("binary\n"));
    EXPECT_EQ(run({"get", "--raw", "A", "Text"}), prints("x"));
    EXPECT_EQ(run({"get", "--raw", "A", "Bytes"}), prints(std::string("\0a", 2)));
    EXPECT_EQ(run({"get", "-0", "A", "Text"}), prints(std::string("x\0", 2)));
    EXPECT_EQ(run({"get", "--json", "A", "Number"}),
              prints("{\n  \"type\": \"dword\",\n  \"value\": 7\n}\n"));
}

TEST_F(GetSet, GetNamesWhatIsMissing) {
    make({"mkkey", "A"});
    EXPECT_EQ(run({"get", "A", "X"}), fails(1, "the key \"A\" has no value \"X\""));
    EXPECT_EQ(run({"get", "/", "X"}), fails(1, "the root key has no value \"X\""));
    EXPECT_EQ(run({"get", "A/B", "X"}), fails(1, "the key \"A/B\" does not exist"));
    EXPECT_EQ(run({"get", "--default", "80", "A/B", "X"}), prints("80\n"));
    EXPECT_EQ(run({"get", "--default", "", "A", "X"}), prints("\n"));
}

TEST_F(GetSet, GetOfAnotherKind) {
    make({"set", "A/B", "X", "1"});
    EXPECT_EQ(run({"get", "A", "b"}), fails(5, "\"b\" is a sub key of the key \"A\", not a value"));
    EXPECT_EQ(run({"get", "A/B/X", "Y"}),
              fails(5, "\"X\" is a value of the key \"A/B\", not a key"));
}

// A name from the end of a path may be a value where the middle of the path is missing.
TEST_F(GetSet, MissingKeyAboveNameOfValue) {
    make({"set", "A", "X", "1"});
    EXPECT_EQ(run({"get", "A/Missing/X", "Y"}), fails(1, "the key \"A/Missing/X\" does not exist"));
}

TEST_F(GetSet, TypeOfANewValueIsGuessed) {
    make({"mkkey", "K"});
    const std::pair<const char*, const char*> cases[] = {{"0", "dword"},
                                                         {"4294967295", "dword"},
                                                         {"0xFFFFFFFF", "dword"},
                                                         {"0x0", "dword"},
                                                         {"0X1f", "dword"},
                                                         {"4294967296", "string"},
                                                         {"007", "string"},
                                                         {"0x", "string"},
                                                         {"0x100000000", "string"},
                                                         {"0x000000001", "string"},
                                                         {"1.5", "string"},
                                                         {"", "string"},
                                                         {" 1", "string"},
                                                         {"+1", "string"},
                                                         {"00FF", "string"},
                                                         {"@x", "string"}};
    for (const auto& [data, type] : cases) {
        make({"rm", "--if-exists", "K", "V"});
        make({"set", "K", "V", data});
        EXPECT_EQ(run({"get", "--type", "K", "V"}), prints(std::string(type) + "\n")) << data;
    }
}

TEST_F(GetSet, TypeIsGiven) {
    make({"set", "-t", "string", "K", "V", "12"});
    EXPECT_EQ(run({"get", "--type", "K", "V"}), prints("string\n"));
    make({"set", "--type", "dword", "K", "V", "0x1F90"});
    EXPECT_EQ(run({"get", "K", "V"}), prints("8080\n"));
    make({"set", "-t", "dword", "K", "V", "007"});
    EXPECT_EQ(run({"get", "K", "V"}), prints("7\n"));
    make({"set", "-t", "string", "K", "V", "--", "-5"});
    EXPECT_EQ(run({"get", "K", "V"}), prints("-5\n"));
}

TEST_F(GetSet, NumberOutOfRange) {
    const std::string rule =
        "a dword must be a number from 0 to 4294967295, in decimal or with 0x: ";
    for (const std::string data : {"4294967296", "0x100000000", "12a", "", "0x", "1 "}) {
        EXPECT_EQ(run({"set", "-t", "dword", "K", "V", data}), fails(5, rule + '"' + data + '"'));
    }
}

TEST_F(GetSet, BinaryFromFileAndInput) {
    const std::string path = file.directory() + "/data";
    std::ofstream(path, std::ios::binary) << std::string("\0\n\xff", 3);
    make({"set", "-t", "binary", "K", "File", "@" + path});
    EXPECT_EQ(run({"get", "K", "File"}), prints("000AFF\n"));
    EXPECT_EQ(run({"set", "-t", "binary", "K", "Input", "-"}, "a\n"), prints(""));
    EXPECT_EQ(run({"get", "K", "Input"}), prints("610A\n"));
    make({"set", "-t", "binary", "K", "Empty", ""});
    EXPECT_EQ(run({"get", "K", "Empty"}), prints("\n"));
    EXPECT_EQ(run({"set", "-t", "binary", "K", "V", "@/nowhere"}),
              fails(3, "/nowhere: No such file or directory"));
    EXPECT_EQ(run({"set", "-t", "binary", "K", "V", "@/tmp"}),
              fails(3, "/tmp: is a directory, not a file"));
}

TEST_F(GetSet, BinaryFromAnInputThatCannotBeRead) {
    make({"set", "-t", "binary", "K", "V", "0102"});
    const auto result =
        vqtest::ChildProcess("/bin/sh", {"-c", "exec " VQREG_COMMAND_PATH " --file " + file.path() +
                                                   " set -t binary K V - < /tmp"})
            .finish();
    EXPECT_EQ(result, fails(3, "standard input: Is a directory"));
    EXPECT_EQ(run({"get", "K", "V"}), prints("0102\n"));
}

TEST_F(GetSet, DefaultWithoutTheRootKey) {
    file.write("");
    EXPECT_EQ(run({"get", "--default", "7", "K", "V"}), prints("7\n"));
    file.write("[Other]\n");
    EXPECT_EQ(run({"get", "--default", "7", "K", "V"}), prints("7\n"));
    file.write("nonsense\n");
    EXPECT_EQ(run({"get", "--default", "7", "K", "V"}).status, 4);
}

TEST_F(GetSet, ClosedStreams) {
    const auto result =
        vqtest::ChildProcess("/bin/sh", {"-c", "exec " VQREG_COMMAND_PATH " --file " + file.path() +
                                                   " set K V text <&- >&- 2>&-"})
            .finish();
    EXPECT_EQ(result, prints(""));
    EXPECT_EQ(run({"get", "K", "V"}), prints("text\n"));
}

TEST_F(GetSet, BadHex) {
    for (const std::string data : {"0", "0g", "0x00", "00 11"}) {
        EXPECT_EQ(run({"set", "-t", "binary", "K", "V", data}),
                  fails(5, "binary data must be pairs of hexadecimal digits, @FILE or -: \"" +
                               data + '"'));
    }
}

TEST_F(GetSet, KeysMayBeNamedLikeCommands) {
    make({"set", "get", "ls", "tree"});
    EXPECT_EQ(run({"get", "get", "ls"}), prints("tree\n"));
}

TEST_F(GetSet, OtherRoot) {
    make({"--root", "Other/Deep", "set", "K", "V", "1"});
    EXPECT_EQ(file.read(), "[Other]\n[Other/Deep]\n[Other/Deep/K]\n\"V\"=dword:00000001\n");
    EXPECT_EQ(run({"get", "--root", "other/deep", "K", "V"}), prints("1\n"));
    EXPECT_EQ(run({"get", "K", "V"}), fails(1, file.path() + " has no key [Velquist]"));
    EXPECT_EQ(file.read(), "[Other]\n[Other/Deep]\n[Other/Deep/K]\n\"V\"=dword:00000001\n");
}

TEST_F(GetSet, DefaultStore) {
    EXPECT_EQ(vqtest::runVqreg({"set", "K", "V", "x"}).status, 0);
    EXPECT_EQ(vqtest::runVqreg({"get", "K", "V"}), prints("x\n"));
    EXPECT_EQ(vqtest::runVqreg({"--file", "/etc/Velquist.cfg", "get", "K", "V"}), prints("x\n"));
}
