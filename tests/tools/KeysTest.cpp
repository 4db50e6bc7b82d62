// vqreg rm, mkkey, ls, tree, cp and mv.
#include "tools/VqregStore.h"

using vqtest::fails;
using vqtest::prints;

class Keys : public vqtest::VqregStore {
protected:
    Keys() {
        file.write(
            "[Velquist]\n\"Version\"=string:4.2\n[Velquist/Net]\n\"Mac\"=binary:00A4\n"
            "\"Port\"=dword:00001F90\n[Velquist/Net/Dns]\n\"First\"=string:10.1.1.2\n"
            "[Velquist/Void]\n");
    }
};

TEST_F(Keys, LsListsValuesThenKeys) {
    EXPECT_EQ(run({"ls"}), prints("Version\nNet/\nVoid/\n"));
    EXPECT_EQ(run({"ls", "net"}), prints("Mac\nPort\nDns/\n"));
    EXPECT_EQ(run({"ls", "Void"}), prints(""));
    EXPECT_EQ(run({"ls", "-0", "Net"}), prints(std::string("Mac\0Port\0Dns/\0", 14)));
    EXPECT_EQ(run({"ls", "-R"}),
              prints("Version\nNet/\nNet/Mac\nNet/Port\nNet/Dns/\nNet/Dns/First\nVoid/\n"));
    EXPECT_EQ(run({"ls", "No"}), fails(1, "the key \"No\" does not exist"));
}

TEST_F(Keys, LsShowsTypesAndData) {
    EXPECT_EQ(run({"ls", "-l", "Net"}),
              prints("binary  Mac   00A4\ndword   Port  8080\nkey     Dns/\n"));
    EXPECT_EQ(run({"--color=always", "ls", "-l", "Net/Dns"}),
              prints("\x1b[36mstring\x1b[0m  First  10.1.1.2\n"));
}

TEST_F(Keys, LsMakesControlCharactersVisible) {
    make({"set", "Void", "Bell", "a\ab"});
    EXPECT_EQ(run({"ls", "-l", "Void"}), prints("string  Bell  a\\x07b\n"));
}

TEST_F(Keys, LsAsJson) {
    EXPECT_EQ(run({"ls", "--json", "Net"}), prints(R"([
  {
    "kind": "value",
    "key": "",
    "name": "Mac",
    "type": "binary",
    "value": "00A4"
  },
  {
    "kind": "value",
    "key": "",
    "name": "Port",
    "type": "dword",
    "value": 8080
  },
  {
    "kind": "key",
    "key": "Dns"
  }
]
)"));
}

TEST_F(Keys, TreeDraws) {
    EXPECT_EQ(run({"tree"}), prints("Velquist/\n"
                                    "|-- Version: 4.2\n"
                                    "|-- Net/\n"
                                    "|   |-- Mac: 00A4\n"
                                    "|   |-- Port: 8080\n"
                                    "|   `-- Dns/\n"
                                    "|       `-- First: 10.1.1.2\n"
                                    "`-- Void/\n"));
    EXPECT_EQ(run({"tree", "-L", "1"}),
              prints("Velquist/\n|-- Version: 4.2\n|-- Net/\n`-- Void/\n"));
    EXPECT_EQ(run({"tree", "net/dns"}), prints("Dns/\n`-- First: 10.1.1.2\n"));
    EXPECT_EQ(run({"tree", "No"}), fails(1, "the key \"No\" does not exist"));
}

TEST_F(Keys, TreeDrawsLinesWhereTheLocaleHasThem) {
    EXPECT_EQ(
        vqtest::runVqreg({"--file", file.path(), "tree", "-L", "1"}, {}, {{"LC_ALL", "C.UTF-8"}}),
        prints("Velquist/\n├── Version: 4.2\n├── Net/\n└── Void/\n"));
}

TEST_F(Keys, MkkeyMakesAllOfThePath) {
    make({"mkkey", "A/B/C"});
    EXPECT_EQ(run({"ls", "-R", "A"}), prints("B/\nB/C/\n"));
    make({"mkkey", "a/b/c"});
    EXPECT_EQ(run({"mkkey", "Net/Port/X"}),
              fails(5, "\"Port\" is a value of the key \"Net\", not a key"));
}

TEST_F(Keys, RmOfValues) {
    make({"rm", "Net", "port"});
    EXPECT_EQ(run({"ls", "Net"}), prints("Mac\nDns/\n"));
    EXPECT_EQ(run({"rm", "Net", "Port"}),
              fails(1, "the value \"Port\" of the key \"Net\" does not exist"));
    EXPECT_EQ(run({"rm", "Net", "Dns"}),
              fails(5, "\"Dns\" is a sub key of the key \"Net\", not a value"));
}

TEST_F(Keys, RmOfKeys) {
    EXPECT_EQ(run({"rm", "Net"}),
              fails(5, "the key \"Net\" is not empty; -r removes it with all below it"));
    EXPECT_EQ(run({"rm", "No"}), fails(1, "the key \"No\" does not exist"));
    EXPECT_EQ(run({"rm", "/"}),
              fails(5, "the root key stays; -r --whole-store removes what is below it"));
    make({"rm", "Void"});
    make({"rm", "-r", "Net"});
    EXPECT_EQ(file.read(), "[Velquist]\n\"Version\"=string:4.2\n");
    EXPECT_EQ(run({"rm", "-r", "/"}).status, 2);
    EXPECT_EQ(file.read(), "[Velquist]\n\"Version\"=string:4.2\n");
    make({"rm", "-r", "--whole-store", "/"});
    EXPECT_EQ(file.read(), "[Velquist]\n");
    EXPECT_EQ(run({"rm", "--whole-store", "Net"}).status, 2);
}

// The backup is the text before the last write, so it shows how many there were.
TEST_F(Keys, RmOfATreeIsOneWrite) {
    const std::string before = file.read();
    make({"rm", "-r", "Net"});
    EXPECT_EQ(file.readBackup(), before);
}

TEST_F(Keys, CpOfKeys) {
    const std::string before = file.read();
    make({"cp", "Net", "Copy/Of/Net"});
    EXPECT_EQ(file.readBackup(), before);
    EXPECT_EQ(run({"ls", "-lR", "Copy/Of/Net"}),
              prints("binary  Mac        00A4\ndword   Port       8080\nkey     Dns/\n"
                     "string  Dns/First  10.1.1.2\n"));
    EXPECT_EQ(run({"cp", "Net/Dns", "Net"}),
              fails(1, "the key \"Net\" exists already; -f merges into it"));
    make({"cp", "-f", "Net/Dns", "Net"});
    EXPECT_EQ(run({"ls", "Net"}), prints("First\nMac\nPort\nDns/\n"));
    make({"cp", "Net", "Net/Inner"});
    EXPECT_EQ(run({"ls", "-R", "Net/Inner"}), prints("First\nMac\nPort\nDns/\nDns/First\n"));
}

TEST_F(Keys, CpOfValues) {
    make({"cp", "Net", "Port", "Void"});
    make({"cp", "Net", "Port", "Void", "Other"});
    EXPECT_EQ(run({"ls", "-l", "Void"}), prints("dword   Other  8080\ndword   Port   8080\n"));
    EXPECT_EQ(run({"cp", "Net", "Mac", "Void", "Port"}),
              fails(1, "the value \"Port\" of the key \"Void\" exists already; -f replaces it"));
    make({"cp", "-f", "Net", "Mac", "Void", "Port"});
    EXPECT_EQ(run({"get", "Void", "Port"}), prints("00A4\n"));
    EXPECT_EQ(run({"cp", "Net", "No", "Void"}),
              fails(1, "the value \"No\" of the key \"Net\" does not exist"));
}

TEST_F(Keys, MvOfKeys) {
    make({"mv", "Net/Dns", "Void/Dns"});
    EXPECT_EQ(run({"ls", "-R"}),
              prints("Version\nNet/\nNet/Mac\nNet/Port\nVoid/\nVoid/Dns/\nVoid/Dns/First\n"));
    make({"mv", "Net", "NET"});
    EXPECT_EQ(run({"ls", "-R", "net"}), prints("Mac\nPort\n"));
    EXPECT_EQ(run({"ls"}), prints("Version\nNET/\nVoid/\n"));
    EXPECT_EQ(run({"mv", "No", "X"}), fails(1, "the key \"No\" does not exist"));
}

TEST_F(Keys, MvOfValues) {
    make({"mv", "Net", "Port", "Net", "PORT"});
    make({"mv", "Net", "Mac", "Void", "Address"});
    EXPECT_EQ(run({"ls", "-R"}),
              prints("Version\nNet/\nNet/PORT\nNet/Dns/\nNet/Dns/First\nVoid/\nVoid/Address\n"));
}

TEST_F(Keys, CpAndMvRefuseNonsense) {
    const std::string before = file.read();
    EXPECT_EQ(run({"mv", "Net", "Net/Dns/Net"}).status, 2);
    EXPECT_EQ(run({"mv", "/", "Net"}).status, 2);
    EXPECT_EQ(run({"mv", "Net", "Net"}).status, 2);
    EXPECT_EQ(run({"cp", "Net", "NET"}).status, 2);
    EXPECT_EQ(run({"cp", "Net", "Port", "Net"}).status, 2);
    EXPECT_EQ(run({"cp", "-f", "Net", "Port", "Net", "Dns"}),
              fails(5, "\"Dns\" is a sub key of the key \"Net\", not a value"));
    EXPECT_EQ(run({"cp", "-f", "Net", "Void/A:B\\C"}).status, 5);
    EXPECT_EQ(file.read(), before);
}

TEST_F(Keys, PathsKeepTheirNames) {
    make({"set", "/./x", "V", "1"});
    EXPECT_EQ(run({"ls", "-R", "/."}), prints("x/\nx/V\n"));
    EXPECT_EQ(run({"ls", "."}), prints("Version\n./\nNet/\nVoid/\n"));
    EXPECT_EQ(run({"ls", ""}), fails(1, "the key \"/\" does not exist"));
    EXPECT_EQ(run({"rm", "-r", ""}).status, 1);
    EXPECT_EQ(run({"ls", "Net/"}), fails(1, "the key \"Net/\" does not exist"));
    EXPECT_EQ(run({"ls", "Net\\Dns"}), fails(1, "the key \"Net\\Dns\" does not exist"));
}
