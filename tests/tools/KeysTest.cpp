// vqreg rm, mkkey, ls, tree, cp and mv.
#include "tools/VqregStore.h"

using vqtest::Arguments;
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
    "key": "Net",
    "name": "Mac",
    "type": "binary",
    "value": "00A4"
  },
  {
    "kind": "value",
    "key": "Net",
    "name": "Port",
    "type": "dword",
    "value": 8080
  },
  {
    "kind": "key",
    "key": "Net/Dns"
  }
]
)"));
}

TEST_F(Keys, TreeDraws) {
    EXPECT_EQ(run({"tree"}), prints("Velquist/\n"
                                    "|-- Version (string): 4.2\n"
                                    "|-- Net/\n"
                                    "|   |-- Mac (binary): 00A4\n"
                                    "|   |-- Port (dword): 8080\n"
                                    "|   `-- Dns/\n"
                                    "|       `-- First (string): 10.1.1.2\n"
                                    "`-- Void/\n"));
    EXPECT_EQ(run({"tree", "-L", "1"}),
              prints("Velquist/\n|-- Version (string): 4.2\n|-- Net/\n`-- Void/\n"));
    EXPECT_EQ(run({"tree", "net/dns"}), prints("Dns/\n`-- First (string): 10.1.1.2\n"));
    EXPECT_EQ(run({"tree", "No"}), fails(1, "the key \"No\" does not exist"));
}

TEST_F(Keys, TreeDrawsLinesWhereTheLocaleHasThem) {
    EXPECT_EQ(
        vqtest::runVqreg({"--file", file.path(), "tree", "-L", "1"}, {}, {{"LC_ALL", "C.UTF-8"}}),
        prints("Velquist/\n├── Version (string): 4.2\n├── Net/\n└── Void/\n"));
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
    EXPECT_EQ(run({"ls", "Net\\Dns"}), fails(1, "the key \"Net\\Dns\" does not exist"));
}

TEST_F(Keys, ASlashBehindAKeyThatExistsDoesNotMatter) {
    EXPECT_EQ(run({"ls", "Net/"}), prints("Mac\nPort\nDns/\n"));
    EXPECT_EQ(run({"get", "net/", "Port"}), prints("8080\n"));
    EXPECT_EQ(run({"tree", "Net/Dns/"}), run({"tree", "Net/Dns"}));
    EXPECT_EQ(run({"export", "Net/Dns/"}), run({"export", "Net/Dns"}));
    EXPECT_EQ(run({"export", "--json", "Net/Dns/"}), run({"export", "--json", "Net/Dns"}));
    EXPECT_EQ(run({"ls", "--json", "Net/"}), run({"ls", "--json", "Net"}));
    make({"cp", "Net/Dns/", "Copy"});
    make({"cp", "-f", "Net/Dns/", "Copy/"});
    make({"cp", "Net/", "Port", "Copy/"});
    EXPECT_EQ(run({"ls", "Copy"}), prints("First\nPort\n"));
    make({"rm", "-r", "Copy/"});
    EXPECT_EQ(run({"mv", "Net/", "Net/Dns/Net"}).status, 2) << "below itself";
    EXPECT_EQ(run({"mv", "Net/", "Net"}).status, 2) << "to itself";
    for (const Arguments& form : {Arguments{"export", "Net"}, {"export", "Net", "--json"}}) {
        EXPECT_EQ(run({"import", "--replace", "--key", "Net/", "-"}, run(form).out), prints(""));
        EXPECT_EQ(run({"apply", "--check", "--key", "Net/", "-"}, run(form).out), prints(""));
    }
    EXPECT_EQ(run({"import", "--key", "No/", "-"}, "[Velquist/No]\n").status, 5);
    make({"set", "Void/", "V", "1"});
    make({"rm", "Void/", "V"});
    make({"mkkey", "Void/"});
    make({"rm", "Void/"});
    EXPECT_EQ(run({"ls"}), prints("Version\nNet/\n"));
    EXPECT_EQ(run({"ls", "No/"}), fails(1, "the key \"No/\" does not exist"));
    EXPECT_EQ(run({"mkkey", "No/"}), fails(5, "a key name must not be empty, in the path \"No/\""));
    EXPECT_EQ(run({"ls", "Net/Port/"}),
              fails(5, "\"Port\" is a value of the key \"Net\", not a key"));
}

TEST_F(Keys, AnEmptyTextIsBlamed) {
    const std::string why = "the key \"\" (the root key is \"/\") does not exist";
    EXPECT_EQ(run({"get", "", "a"}), fails(1, why));
    EXPECT_EQ(run({"ls", ""}), fails(1, why));
    EXPECT_EQ(run({"export", ""}), fails(1, why));
    EXPECT_EQ(run({"rm", "-r", ""}), fails(1, why));
    EXPECT_EQ(run({"set", "", "a", "1"}),
              fails(5, "a key name must not be empty; the root key is \"/\""));
}

// What a program reads out of one command it can put into another.
TEST_F(Keys, KeysInJsonAreCountedFromTheRootKey) {
    const auto key = [&](const Arguments& arguments) {
        const std::string out = run(arguments).out;
        const std::size_t at = out.find("\"key\":");
        const std::size_t open = out.find('"', at + 6);
        return out.substr(open + 1, out.find('"', open + 1) - open - 1);
    };
    EXPECT_EQ(key({"ls", "--json", "Net/Dns"}), "Net/Dns");
    EXPECT_EQ(key({"ls", "--json"}), "");
    EXPECT_EQ(key({"tree", "--json", "net/dns"}), "net/dns");
    EXPECT_EQ(key({"tree", "--json"}), "");
    EXPECT_EQ(key({"export", "--json", "Net/Dns"}), "Net/Dns");
    EXPECT_EQ(key({"export", "--json"}), "");
    const vqtest::TempStore other;
    other.write("[Velquist]\n");
    EXPECT_EQ(key({"diff", "--json", other.path(), "-"}), "");
    other.write("[Velquist]\n\"Version\"=string:4.2\n");
    EXPECT_EQ(key({"diff", "--json", other.path(), "-"}), "Net");
    EXPECT_EQ(key({"--root", "Velquist/Net", "diff", "--json", other.path(), "-"}), "");
}

TEST_F(Keys, AnExportedRootKeyComesBack) {
    const auto text = run({"export", "--json"});
    const std::string before = file.read();
    make({"rm", "-r", "Net"});
    EXPECT_EQ(run({"import", "--json", "-"}, text.out).status, 0);
    EXPECT_EQ(file.read(), before);
}

TEST_F(Keys, SetSaysOnceThatItHasMadeAKey) {
    EXPECT_EQ(run({"set", "New/Er/Est", "V", "1"}),
              (vqtest::CommandResult{0, "", "vqreg: made the key \"New/Er/Est\"\n"}));
    EXPECT_EQ(run({"set", "New/Er/Est", "W", "1"}), prints(""));
    EXPECT_EQ(run({"set", "Net", "New", "1"}), prints(""));
}

TEST_F(Keys, GetKnowsAValueInThePlaceOfTheKey) {
    const std::string usage =
        "usage: vqreg get [--type] [--raw] [--default V] [--json] [-0] KEY NAME";
    const auto meant = [&](const std::string& line) {
        return fails(2, "NAME is required; did you mean \"vqreg get " + line + "\"?\n" + usage);
    };
    EXPECT_EQ(run({"get", "Net/Port"}), meant("Net Port"));
    EXPECT_EQ(run({"get", "Net/Dns/First"}), meant("Net/Dns First"));
    EXPECT_EQ(run({"get", "Version"}), meant("/ Version"));
    make({"set", "Net", "It's", "1"});
    EXPECT_EQ(run({"get", "Net/It's"}), meant("Net 'It'\\''s'"));
    for (const char* const key : {"Net", "No", "No/Port", "/", "", "Net/Port/X"}) {
        EXPECT_EQ(run({"get", key}), fails(2, "NAME is required\n" + usage)) << key;
    }
}
