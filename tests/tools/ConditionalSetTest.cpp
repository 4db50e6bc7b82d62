// vqreg set, of a value that is there already, and vqreg incr.
#include <memory>

#include "tools/VqregStore.h"

using vqtest::Arguments;
using vqtest::fails;
using vqtest::prints;
using vqtest::VqregProcess;

namespace {

const std::string kText =
    "[Velquist]\n[Velquist/Net]\n\"Mac\"=binary:00A4\n\"Name\"=string:eth0\n"
    "\"Port\"=dword:00001F90\n[Velquist/Net/Dns]\n";

const std::string kNoDword =
    "a dword must be a number from 0 to 4294967295, in decimal or with 0x: ";

}  // namespace

class ConditionalSet : public vqtest::VqregStore {
protected:
    ConditionalSet() { file.write(kText); }

    void expectUntouched() const {
        EXPECT_EQ(file.read(), kText);
        EXPECT_FALSE(file.backupExists());
    }
};

TEST_F(ConditionalSet, KeepsTheTypeOfTheValue) {
    EXPECT_EQ(run({"set", "Net", "Port", "8o80"}), fails(5, kNoDword + "\"8o80\""));
    EXPECT_EQ(run({"set", "Net", "Mac", "eth"}),
              fails(5, "binary data must be pairs of hexadecimal digits, @FILE or -: \"eth\""));
    expectUntouched();
    make({"set", "net", "PORT", "0x51"});
    make({"set", "Net", "Name", "17"});
    make({"set", "Net", "Mac", "17"});
    EXPECT_EQ(run({"ls", "-l", "Net"}),
              prints("binary  Mac   17\nstring  Name  17\ndword   Port  81\nkey     Dns/\n"));
}

TEST_F(ConditionalSet, ChangesTheTypeWhenTold) {
    make({"set", "-t", "string", "Net", "Port", "8o80"});
    EXPECT_EQ(run({"get", "--type", "Net", "Port"}), prints("string\n"));
}

TEST_F(ConditionalSet, BinaryDataOfAValueMayComeFromTheInput) {
    EXPECT_EQ(run({"set", "Net", "Mac", "-"}, "ab"), prints(""));
    EXPECT_EQ(run({"get", "Net", "Mac"}), prints("6162\n"));
}

TEST_F(ConditionalSet, WritesNothingForTheSameData) {
    const ino_t before = file.inode();
    make({"set", "Net", "Port", "8080"});
    make({"set", "Net", "Name", "eth0"});
    EXPECT_EQ(file.inode(), before);
    expectUntouched();
}

TEST_F(ConditionalSet, OfAnExistingValueCreatesNone) {
    EXPECT_EQ(run({"set", "--existing", "Net", "Prot", "1"}),
              fails(1, "the value \"Prot\" of the key \"Net\" does not exist"));
    EXPECT_EQ(run({"set", "--existing", "Nat", "Port", "1"}),
              fails(1, "the value \"Port\" of the key \"Nat\" does not exist"));
    expectUntouched();
    make({"set", "--existing", "Net", "Port", "1"});
    EXPECT_EQ(run({"get", "Net", "Port"}), prints("1\n"));
}

TEST_F(ConditionalSet, OfAnExistingValueCreatesNoStore) {
    vqtest::TempStore other;
    EXPECT_EQ(vqtest::runVqreg({"--file", other.path(), "set", "--existing", "K", "V", "1"}),
              fails(3, other.path() + ": the file does not exist"));
    EXPECT_FALSE(other.exists());
}

TEST_F(ConditionalSet, IfItHasTheExpectedData) {
    EXPECT_EQ(run({"set", "--if", "80", "Net", "Port", "81"}),
              fails(1, "the value \"Port\" of the key \"Net\" is \"8080\", not \"80\""));
    EXPECT_EQ(run({"set", "--if", "x", "Net", "Port", "81"}).status, 1);
    EXPECT_EQ(run({"set", "--if", "00", "Net", "Mac", "01"}).status, 1);
    EXPECT_EQ(run({"set", "--if", "ETH0", "Net", "Name", "x"}).status, 1);
    EXPECT_EQ(run({"set", "--if", "", "Net", "Missing", "x"}),
              fails(1, "the value \"Missing\" of the key \"Net\" does not exist"));
    expectUntouched();
    make({"set", "--if", "0x1f90", "Net", "Port", "81"});
    make({"set", "--if", "00a4", "Net", "Mac", "01"});
    make({"set", "--if", "eth0", "-t", "dword", "Net", "Name", "7"});
    EXPECT_EQ(run({"ls", "-l", "Net"}),
              prints("binary  Mac   01\ndword   Name  7\ndword   Port  81\nkey     Dns/\n"));
}

TEST_F(ConditionalSet, LooksAtTheOldDataBeforeTheNewOnes) {
    const auto isOther = fails(1, "the value \"Port\" of the key \"Net\" is \"8080\", not \"80\"");
    EXPECT_EQ(run({"set", "--if", "80", "Net", "Port", "many"}), isOther);
    EXPECT_EQ(run({"set", "--if", "80", "-t", "dword", "Net", "Port", "many"}), isOther);
    EXPECT_EQ(run({"set", "--if", "80", "-t", "binary", "Net", "Port", "@/nowhere"}), isOther);
    EXPECT_EQ(run({"set", "--existing", "-t", "dword", "Net", "Prot", "many"}),
              fails(1, "the value \"Prot\" of the key \"Net\" does not exist"));
    EXPECT_EQ(run({"set", "--if", "8080", "Net", "Port", "many"}), fails(5, kNoDword + "\"many\""));
    expectUntouched();
}

// The store is locked from the look at the old data to the change.
TEST_F(ConditionalSet, OnlyOneOfManyWins) {
    for (int round = 0; round < 5; ++round) {
        make({"set", "Net", "Name", "free"});
        std::vector<std::unique_ptr<VqregProcess>> processes;
        for (const std::string name : {"a", "b", "c", "d"}) {
            processes.push_back(std::make_unique<VqregProcess>(
                Arguments{"--file", file.path(), "set", "--if", "free", "Net", "Name", name}));
        }
        int winners = 0;
        for (const auto& process : processes) {
            winners += process->finish().status == 0 ? 1 : 0;
        }
        EXPECT_EQ(winners, 1);
    }
}

class Incr : public ConditionalSet {};

TEST_F(Incr, PrintsTheNewNumber) {
    EXPECT_EQ(run({"incr", "Net", "Port"}), prints("8081\n"));
    EXPECT_EQ(run({"incr", "net", "port", "0x10"}), prints("8097\n"));
    EXPECT_EQ(run({"incr", "Net", "Port", "-97"}), prints("8000\n"));
    EXPECT_EQ(run({"get", "Net", "Port"}), prints("8000\n"));
}

TEST_F(Incr, CountsFromNothing) {
    EXPECT_EQ(run({"incr", "New/Counters", "Starts"}), prints("1\n"));
    EXPECT_EQ(run({"get", "--type", "New/Counters", "Starts"}), prints("dword\n"));
    EXPECT_EQ(run({"incr", "New", "None", "0"}), prints("0\n"));
    EXPECT_EQ(run({"get", "New", "None"}), prints("0\n"));
}

TEST_F(Incr, RefusesWhatIsNoDword) {
    EXPECT_EQ(run({"incr", "Net", "Name"}),
              fails(5, "the value \"Name\" of the key \"Net\" is no number, its type is string"));
    EXPECT_EQ(run({"incr", "Net", "Mac"}).status, 5);
    EXPECT_EQ(run({"incr", "Net", "Dns"}).status, 5);
    EXPECT_EQ(run({"incr", "Net", "Port", "-8081"}),
              fails(5,
                    "the value \"Port\" of the key \"Net\" would be -1, and a dword is from 0 "
                    "to 4294967295"));
    EXPECT_EQ(run({"incr", "Net", "Port", "4294967295"}).status, 5);
    for (const std::string by : {"x", "", "-", "1.5", "4294967296", "--", "+1"}) {
        EXPECT_NE(run({"incr", "Net", "Port", "--", by}).status, 0) << by;
    }
    expectUntouched();
}

TEST_F(Incr, OfTwoProcessesLosesNothing) {
    const std::string script = "for i in $(seq 50); do \"$0\" --file \"$1\" incr Net Count; done";
    vqtest::ChildProcess first("/bin/sh", {"-c", script, VQREG_COMMAND_PATH, file.path()});
    vqtest::ChildProcess second("/bin/sh", {"-c", script, VQREG_COMMAND_PATH, file.path()});
    const auto counted = first.finish();
    EXPECT_EQ(counted.err, "");
    EXPECT_EQ(second.finish().err, "");
    EXPECT_EQ(run({"get", "Net", "Count"}), prints("100\n"));
}
