// What bash, zsh and fish offer for the command line of the command.
#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "tools/ShellProcess.h"
#include "tools/VqregStore.h"

using testing::ElementsAre;
using testing::IsEmpty;
using vqtest::ShellProcess;

using Words = std::vector<std::string>;

class Completion : public vqtest::VqregStore, public testing::WithParamInterface<const char*> {
protected:
    void SetUp() override {
        if (!ShellProcess::isInstalled(GetParam())) {
            GTEST_SKIP() << GetParam() << " is not installed";
        }
        m_shell = std::make_unique<ShellProcess>(GetParam());
    }

    Words offers(const Words& before, const std::string& word) const {
        return m_shell->offers(before, word);
    }

    // The same behind the options that choose the store of the test.
    Words offersInStore(Words before, const std::string& word) const {
        before.insert(before.begin(), {"--file", file.path()});
        return offers(before, word);
    }

    void makeNames() const {
        make({"set", "Net work/Dns", "First Server", "1"});
        make({"set", "Net work/Dns", "Second", "1"});
        make({"set", "Net", "Port", "1"});
    }

private:
    std::unique_ptr<ShellProcess> m_shell;
};

namespace {

// The first words of the indented lines behind a heading of a help.
Words listed(const Words& command, const std::string& heading) {
    Words arguments = command;
    arguments.emplace_back("--help");
    std::istringstream help(vqtest::runVqreg(arguments).out);
    Words words;
    bool isBehind = false;
    for (std::string line; std::getline(help, line);) {
        if (!line.starts_with("  ")) {
            isBehind = line == heading;
        } else if (isBehind && line[2] != ' ') {
            words.push_back(line.substr(2, line.find(' ', 2) - 2));
        }
    }
    return words;
}

Words commands() {
    Words names = listed({}, "Subcommands:");
    std::sort(names.begin(), names.end());
    return names;
}

// "-t,--type" is two.
std::set<std::string> options(const Words& command) {
    std::set<std::string> names;
    for (const std::string& both : listed(command, "Options:")) {
        std::istringstream stream(both);
        for (std::string name; std::getline(stream, name, ',');) {
            names.insert(name);
        }
    }
    return names;
}

}  // namespace

TEST_P(Completion, OffersTheCommandsOfTheHelp) {
    ASSERT_EQ(24u, commands().size());
    EXPECT_EQ(offers({}, ""), commands());
    EXPECT_THAT(offers({}, "re"), ElementsAre("restore"));
    EXPECT_THAT(offers({"--no-notify", "--timeout", "3"}, "ex"), ElementsAre("export"));
}

TEST_P(Completion, OffersTheCommandsToHelp) {
    EXPECT_EQ(offers({"help"}, ""), commands());
    EXPECT_THAT(offers({"help"}, "exp"), ElementsAre("export"));
    EXPECT_THAT(offers({"help", "get"}, "s"), IsEmpty());
}

TEST_P(Completion, DoesNotOfferTheHiddenCommand) {
    EXPECT_THAT(offers({}, "compl"), IsEmpty());
}

TEST_P(Completion, OffersTheOptionsOfTheHelpInFrontOfACommand) {
    const Words offered = offers({}, "-");
    EXPECT_EQ(std::set<std::string>(offered.begin(), offered.end()), options({}));
}

TEST_P(Completion, OffersTheOptionsOfTheHelpOfEachCommand) {
    std::set<std::string> everywhere = options({});
    everywhere.erase("--version");
    for (const std::string& command : commands()) {
        std::set<std::string> expected = options({command});
        EXPECT_TRUE(expected.contains("--help")) << command;
        expected.insert(everywhere.begin(), everywhere.end());
        const Words offered = offers({command}, "-");
        EXPECT_EQ(std::set<std::string>(offered.begin(), offered.end()), expected) << command;
    }
}

TEST_P(Completion, OffersArgumentsOfOptions) {
    EXPECT_THAT(offers({"--color"}, "a"), ElementsAre("always", "auto"));
    EXPECT_THAT(offers({"ls", "--color"}, "n"), ElementsAre("never"));
    EXPECT_THAT(offers({"set", "-t"}, "d"), ElementsAre("dword"));
    EXPECT_THAT(offers({"set", "--type"}, ""), ElementsAre("binary", "dword", "string"));
}

TEST_P(Completion, OffersFiles) {
    makeNames();
    const std::string beginning = file.path().substr(0, file.path().size() - 5);
    const auto both = ElementsAre(file.path(), file.backupPath());
    EXPECT_THAT(offers({"--file"}, beginning), both);
    EXPECT_THAT(offers({"import"}, beginning), both);
    EXPECT_THAT(offers({"apply"}, beginning), both);
    EXPECT_THAT(offers({"check"}, beginning), both);
    EXPECT_THAT(offers({"diff", file.path()}, beginning), both);
    EXPECT_THAT(offersInStore({"get"}, beginning), IsEmpty());
    ASSERT_EQ(0, std::rename(file.backupPath().c_str(), (file.path() + " b").c_str()));
    EXPECT_THAT(offers({"import"}, file.path() + "\\ "), ElementsAre(file.path() + " b"));
}

TEST_P(Completion, OffersKeysOfTheChosenStore) {
    makeNames();
    const auto all = ElementsAre("Net", "Net work", "Net work/Dns");
    for (const char* const command : {"get", "set", "incr", "rm", "mkkey", "ls", "tree", "cp", "mv",
                                      "export", "watch", "run", "edit", "browse"}) {
        EXPECT_THAT(offersInStore({command}, "N"), all) << command;
    }
    EXPECT_THAT(offers({"--file=" + file.path(), "get"}, "N"), all);
    EXPECT_THAT(offers({"get", "--file", file.path()}, "N"), all);
    EXPECT_THAT(offersInStore({"--root", "Velquist/Net work", "ls"}, ""), ElementsAre("Dns"));
    EXPECT_THAT(offersInStore({"import", "--key"}, "N"), all);
    EXPECT_THAT(offersInStore({"info"}, "N"), IsEmpty());
    EXPECT_THAT(offers({"--file", file.path() + ".missing", "get"}, "N"), IsEmpty());
}

TEST_P(Completion, OffersValuesOfTheKey) {
    makeNames();
    for (const char* const command : {"get", "set", "incr", "rm"}) {
        EXPECT_THAT(offersInStore({command, "Net"}, "p"), ElementsAre("Port")) << command;
    }
    EXPECT_THAT(offersInStore({"get", "Net work/Dns"}, ""), ElementsAre("First Server", "Second"));
    EXPECT_THAT(offersInStore({"get", "--type", "--default", "x", "net"}, ""), ElementsAre("Port"));
    EXPECT_THAT(offersInStore({"set", "-t", "dword", "Net"}, ""), ElementsAre("Port"));
    EXPECT_THAT(offers({"--file=" + file.path(), "rm", "Net"}, ""), ElementsAre("Port"));
    EXPECT_THAT(offers({"get", "Net", "--file", file.path()}, ""), ElementsAre("Port"));
}

TEST_P(Completion, OffersKeysAndValuesForTheNewPlace) {
    makeNames();
    for (const char* const command : {"cp", "mv"}) {
        EXPECT_THAT(offersInStore({command, "Net"}, ""),
                    ElementsAre("Net", "Net work", "Net work/Dns", "Port"));
        EXPECT_THAT(offersInStore({command, "Net", "Port"}, "Net\\ work/"),
                    ElementsAre("Net work/Dns"));
        EXPECT_THAT(offersInStore({command, "Net", "Port", "Net work/Dns"}, "s"),
                    ElementsAre("Second"));
    }
}

TEST_P(Completion, OffersProgramsBehindTheKeyOfRun) {
    makeNames();
    const Words programs = offersInStore({"run", "--grace", "3", "Net", "--"}, "printen");
    EXPECT_THAT(programs, ElementsAre("printenv"));
    EXPECT_THAT(offersInStore({"run", "--prefix", "P"}, "Net\\ work/"),
                ElementsAre("Net work/Dns"));
}

TEST_P(Completion, CompletesNamesWithBlanks) {
    makeNames();
    EXPECT_THAT(offersInStore({"get"}, "Net\\ w"), ElementsAre("Net work", "Net work/Dns"));
    EXPECT_THAT(offersInStore({"get"}, "\"Net work/D"), ElementsAre("Net work/Dns"));
    EXPECT_THAT(offersInStore({"get"}, "'Net work/D"), ElementsAre("Net work/Dns"));
    EXPECT_THAT(offersInStore({"get", "Net work/Dns"}, "fi"), ElementsAre("First Server"));
}

INSTANTIATE_TEST_SUITE_P(Shells, Completion, testing::Values("bash", "zsh", "fish"),
                         [](const auto& shell) { return std::string(shell.param); });
