// What the commands that change a store tell about it to programs.
#include <nlohmann/json.hpp>

#include "tools/VqregStore.h"

using nlohmann::json;
using vqtest::Arguments;
using vqtest::CommandResult;
using vqtest::fails;
using vqtest::prints;

namespace {

const std::string kText = "[Velquist]\n[Velquist/Net]\n\"Port\"=dword:00000050\n[Velquist/Void]\n";

}  // namespace

class Report : public vqtest::VqregStore {
protected:
    Report() { file.write(kText); }

    // Of a command that must succeed.
    json report(const Arguments& arguments, const std::string& input = {}, int status = 0,
                const std::string& err = "") const {
        const CommandResult result = run(arguments, input);
        EXPECT_EQ(result.err, err);
        EXPECT_EQ(result.status, status);
        return json::parse(result.out);
    }

    static json dword(int number) { return {{"type", "dword"}, {"value", number}}; }

    static json ofPort(const json& before, const json& after) {
        return {{"path", "Net/Port"},
                {"key", "Net"},
                {"name", "Port"},
                {"before", before},
                {"after", after}};
    }

    static json ofKey(const std::string& key, bool isCreated) {
        const json there = {{"type", "key"}};
        return {{"path", key},
                {"key", key},
                {"before", isCreated ? json() : there},
                {"after", isCreated ? there : json()}};
    }

    static json changed(const json& changes) {
        return {{"changed", !changes.empty()}, {"changes", changes}};
    }
};

TEST_F(Report, OfSet) {
    EXPECT_EQ(report({"set", "--json", "Net", "Port", "81"}),
              changed(json::array({ofPort(dword(80), dword(81))})));
    EXPECT_EQ(report({"set", "--json", "Net", "Port", "81"}), changed(json::array()));
    const json made = report({"set", "--json", "New/Deep", "V", "x"}, "", 0,
                             "vqreg: made the key \"New/Deep\"\n");
    ASSERT_EQ(made["changes"].size(), 3u);
    EXPECT_EQ(made["changes"][0], ofKey("New", true));
    EXPECT_EQ(made["changes"][1], ofKey("New/Deep", true));
    EXPECT_EQ(made["changes"][2]["before"], json());
    EXPECT_EQ(made["changes"][2]["after"], json({{"type", "string"}, {"value", "x"}}));
}

TEST_F(Report, OfRm) {
    EXPECT_EQ(report({"rm", "--json", "Net", "Port"}),
              changed(json::array({ofPort(dword(80), json())})));
    EXPECT_EQ(report({"rm", "--json", "--if-exists", "Net", "Port"}), changed(json::array()));
    EXPECT_EQ(report({"rm", "--json", "Void"}), changed(json::array({ofKey("Void", false)})));
    file.write(kText);
    EXPECT_EQ(report({"rm", "--json", "-r", "Net"}),
              changed(json::array({ofKey("Net", false), ofPort(dword(80), json())})));
}

TEST_F(Report, OfImport) {
    const std::string text = "[Velquist]\n[Velquist/Net]\n\"Port\"=dword:00000051\n";
    const json replaced =
        changed(json::array({ofPort(dword(80), dword(81)), ofKey("Void", false)}));
    EXPECT_EQ(report({"import", "--json", "--replace", "--dry-run", "-"}, text, 1), replaced);
    EXPECT_EQ(file.read(), kText);
    EXPECT_EQ(report({"import", "--json", "--replace", "-"}, text), replaced);
    EXPECT_EQ(report({"import", "--json", "-"}, text), changed(json::array()));
    EXPECT_EQ(report({"import", "--json", "--dry-run", "-"}, text), changed(json::array()));
    // JSON is known by its first character.
    EXPECT_EQ(report({"import", "--json", "-"}, run({"export", "--json"}).out),
              changed(json::array()));
}

TEST_F(Report, OfRestore) {
    make({"set", "Net", "Port", "81"});
    const json restored = changed(json::array({ofPort(dword(81), dword(80))}));
    EXPECT_EQ(report({"restore", "-n", "--json"}), restored);
    EXPECT_EQ(report({"restore", "--json"}), restored);
    EXPECT_EQ(file.read(), kText);
    file.write(file.readBackup());
    EXPECT_EQ(report({"restore", "--json"}), changed(json::array()));
}

TEST_F(Report, OfRestoreNamesOtherTopLevelKeys) {
    make({"set", "Net", "Port", "80", "--root", "Else"});
    const json restored = report({"restore", "--json"});
    ASSERT_FALSE(restored["changes"].empty());
    EXPECT_EQ(restored["changes"][0]["root"], "Else");
    EXPECT_EQ(restored["changes"][0]["key"], "Net");
}

TEST_F(Report, OfRestoreOfAMalformedFile) {
    make({"set", "Net", "Port", "80", "--root", "Else"});
    file.write(file.readBackup() + "nonsense\n");
    const CommandResult result = run({"restore", "--json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.err.find("the malformed text is kept in " + file.path() + ".malformed\n"),
              std::string::npos);
    EXPECT_EQ(json::parse(result.out), (json{{"changed", true}, {"changes", json::array()}}));
}

TEST_F(Report, OfBytesThatAreNotUtf8) {
    const json report = this->report({"set", "--json", "Net", "caf\xE9", "\xFF"});
    EXPECT_EQ(report["changes"][0]["name"], "hex:/636166E9");
    EXPECT_EQ(report["changes"][0]["after"]["value"], "hex:/FF");
}

TEST_F(Report, OfADryRunByTheExitCode) {
    EXPECT_EQ(run({"import", "--dry-run", "-"}, kText), prints(""));
    EXPECT_EQ(run({"import", "--dry-run", "-"}, "[Velquist]\n[Velquist/New]\n"),
              (CommandResult{1, "+ [Velquist/New]\n", ""}));
}

TEST_F(Report, OfRemovalsByTheExitCode) {
    EXPECT_EQ(run({"rm", "-f", "Net", "No"}),
              fails(1, "the value \"No\" of the key \"Net\" does not exist"));
    EXPECT_EQ(run({"rm", "-f", "No"}), fails(1, "the key \"No\" does not exist"));
    EXPECT_EQ(run({"rm", "-f", "Net"}),
              fails(5, "the key \"Net\" is not empty; -r removes it with all below it"));
    EXPECT_EQ(file.read(), kText);
    EXPECT_EQ(run({"rm", "--if-exists", "Net", "No"}), prints(""));
    EXPECT_EQ(run({"rm", "--if-exists", "No", "Port"}), prints(""));
    EXPECT_EQ(run({"rm", "--if-exists", "No"}), prints(""));
    EXPECT_EQ(run({"rm", "--if-exists", "Net"}).status, 5);
    EXPECT_EQ(run({"rm", "--if-exists", "Net", "Port", "--root", "Else"}), prints(""));
    EXPECT_EQ(file.read(), kText);
    EXPECT_FALSE(file.backupExists());
    EXPECT_EQ(run({"rm", "--if-exists", "Net", "Port"}), prints(""));
    EXPECT_EQ(file.read(), "[Velquist]\n[Velquist/Net]\n[Velquist/Void]\n");
}
