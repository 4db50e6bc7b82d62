// vqreg apply.
#include "tools/VqregStore.h"

using vqtest::Arguments;
using vqtest::CommandResult;
using vqtest::fails;
using vqtest::prints;

namespace {

const std::string kText =
    "[Velquist]\n\"Keep\"=string:x\n[Velquist/Net]\n\"Port\"=dword:00000050\n";

const std::string kWanted =
    "[Velquist/Net]\n\"Port\"=dword:00001F90\n[Velquist/Net/Dns]\n\"First\"=string:a\n";

const std::string kDifference =
    "~ [Velquist/Net] \"Port\"=dword:00000050 -> dword:00001F90\n"
    "+ [Velquist/Net/Dns]\n"
    "+ [Velquist/Net/Dns] \"First\"=string:a\n";

const std::string kUnchanged = "{\n  \"changed\": false,\n  \"changes\": []\n}\n";

}  // namespace

class Apply : public vqtest::VqregStore {
protected:
    Apply() { file.write(kText); }

    CommandResult apply(const std::string& text, Arguments options = {}) const {
        options.insert(options.begin(), "apply");
        options.emplace_back("-");
        return run(options, text);
    }

    void expectUntouched() const {
        EXPECT_EQ(file.read(), kText);
        EXPECT_FALSE(file.backupExists());
    }
};

TEST_F(Apply, MakesItSoAndLeavesTheRest) {
    EXPECT_EQ(apply(kWanted), prints(""));
    EXPECT_EQ(file.read(), "[Velquist]\n\"Keep\"=string:x\n" + kWanted);
    EXPECT_EQ(file.readBackup(), kText);
}

TEST_F(Apply, WritesNothingTheSecondTime) {
    EXPECT_EQ(apply(kWanted, {"--diff"}), prints(kDifference));
    const ino_t inode = file.inode();
    const std::string backup = file.readBackup();
    EXPECT_EQ(apply(kWanted, {"--diff"}), prints(""));
    EXPECT_EQ(apply(kWanted, {"--json"}), prints(kUnchanged));
    EXPECT_EQ(apply(kWanted, {"--check"}), prints(""));
    EXPECT_EQ(apply(run({"export", "--json"}).out), prints(""));
    EXPECT_EQ(file.inode(), inode);
    EXPECT_EQ(file.readBackup(), backup);
}

TEST_F(Apply, OfACheckTellsByItsExitCode) {
    EXPECT_EQ(apply(kWanted, {"--check"}), (CommandResult{1, "", ""}));
    EXPECT_EQ(apply(kWanted, {"--check", "--diff"}), (CommandResult{1, kDifference, ""}));
    EXPECT_EQ(apply(kText, {"--check", "--diff"}), prints(""));
    expectUntouched();
}

TEST_F(Apply, ReportsAsJson) {
    const std::string report = R"({
  "changed": true,
  "changes": [
    {
      "path": "Net/Port",
      "key": "Net",
      "name": "Port",
      "before": {
        "type": "dword",
        "value": 80
      },
      "after": {
        "type": "dword",
        "value": 8080
      }
    },
    {
      "path": "Net/Dns",
      "key": "Net/Dns",
      "before": null,
      "after": {
        "type": "key"
      }
    }
  ]
}
)";
    const std::string text = "[Velquist/Net]\n\"Port\"=dword:00001F90\n[Velquist/Net/Dns]\n";
    EXPECT_EQ(apply(text, {"--check", "--json"}), (CommandResult{1, report, ""}));
    expectUntouched();
    EXPECT_EQ(apply(text, {"--json"}), prints(report));
}

TEST_F(Apply, OfOneKeyRefusesOthers) {
    EXPECT_EQ(apply(kWanted, {"--key", "Net"}), prints(""));
    file.write(kText);
    EXPECT_EQ(apply(kWanted, {"--key", "Other"}).status, 5);
    EXPECT_EQ(file.read(), kText);
}

TEST_F(Apply, RefusesAKeyInThePlaceOfAValue) {
    EXPECT_EQ(apply("[Velquist/Keep]\n"),
              (CommandResult{5, "",
                             "vqreg: a key here is a value there: [Velquist] \"Keep\"\n"
                             "vqreg: -: keys and values cannot be merged; nothing has been "
                             "changed\n"}));
    EXPECT_EQ(apply("[Velquist]\n\"Net\"=string:x\n").status, 5);
    EXPECT_EQ(apply("[Velquist/Keep]\n", {"--check"}).status, 5);
    EXPECT_EQ(apply("[Velquist/Keep/a]\n", {"--key", "Keep/a"}),
              fails(5, "\"Keep\" is a value of the key \"Velquist\", not a key"));
    expectUntouched();
}

TEST_F(Apply, RefusesBadTexts) {
    EXPECT_EQ(apply("[Velquist]\n\"a\"=text:x\n").status, 4);
    EXPECT_EQ(apply("{\"values\"").status, 4);
    EXPECT_EQ(apply("[Elsewhere]\n").status, 5);
    EXPECT_EQ(run({"apply", "/nowhere"}), fails(3, "/nowhere: No such file or directory"));
    EXPECT_EQ(run({"apply"}).status, 2);
    expectUntouched();
}

TEST_F(Apply, OfATextThatSaysNothingChangesNothing) {
    EXPECT_EQ(apply("", {"--json"}), prints(kUnchanged));
    expectUntouched();
    vqtest::TempStore none;
    EXPECT_EQ(vqtest::runVqreg({"--file", none.path(), "apply", "-"}, ""), prints(""));
    EXPECT_FALSE(none.exists());
}

TEST_F(Apply, MakesTheStoreThatIsMissing) {
    vqtest::TempStore none;
    const Arguments check = {"--file", none.path(), "apply", "--check", "--diff", "-"};
    EXPECT_EQ(vqtest::runVqreg(check, "[Velquist]\n"), (CommandResult{1, "+ [Velquist]\n", ""}));
    EXPECT_FALSE(none.exists());
    const auto made =
        vqtest::runVqreg({"--file", none.path(), "apply", "--json", "-"}, "[Velquist]\n");
    EXPECT_EQ(made.status, 0);
    EXPECT_NE(made.out.find("\"changed\": true"), std::string::npos) << made.out;
    EXPECT_EQ(none.read(), "[Velquist]\n");
    EXPECT_EQ(vqtest::runVqreg(check, "[Velquist]\n"), prints(""));
}

TEST_F(Apply, DoesNotTouchAMalformedStore) {
    file.write("[Velquist]\nnonsense\n");
    EXPECT_EQ(apply(kWanted).status, 4);
    EXPECT_EQ(file.read(), "[Velquist]\nnonsense\n");
}
