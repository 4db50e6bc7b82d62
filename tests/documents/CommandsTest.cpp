// The documents and the command agree with each other.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "documents/Documents.h"
#include "support/ChildProcess.h"

using vqtest::CodeBlock;
using vqtest::Document;
using vqtest::projectPath;

namespace {

using Names = std::set<std::string>;

const std::regex kOption(R"((^|[\s,\[|])(--?[A-Za-z0-9][\w-]*))");

std::string helpOf(const std::string& command) {
    const std::vector<std::string> arguments = command.empty()
                                                   ? std::vector<std::string>{"--help"}
                                                   : std::vector<std::string>{command, "--help"};
    return vqtest::ChildProcess(VQREG_COMMAND_PATH, arguments).finish().out;
}

// The first words of the lines below a heading of the help, and the second one of "-t,--type".
Names listed(const std::string& help, const std::string& heading) {
    Names names;
    std::istringstream in(help.substr(std::min(help.find('\n' + heading + '\n'), help.size())));
    std::string line;
    std::getline(in, line);
    std::getline(in, line);
    while (std::getline(in, line) && line.starts_with("  ")) {
        if (line[2] == ' ') {
            continue;  // goes on with the line above
        }
        std::istringstream words(line);
        std::string word;
        words >> word;
        std::istringstream parts(word);
        for (std::string part; std::getline(parts, part, ',');) {
            names.insert(part);
        }
    }
    return names;
}

class Commands : public testing::Test {
protected:
    Commands() {
        for (const std::string& command : listed(helpOf(""), "Subcommands:")) {
            m_options[command] = listed(helpOf(command), "Options:");
        }
    }

    const Names& global() const { return m_global; }
    const std::map<std::string, Names>& options() const { return m_options; }

    // Fails for a command line that the command would not understand.
    void checkLine(const std::string& line, const std::string& place) const {
        std::istringstream in(line);
        std::vector<std::string> words;
        for (std::string word; in >> word;) {
            words.push_back(word);
        }
        const auto command = std::find_if(words.begin() + 1, words.end(), [&](const auto& word) {
            return m_options.contains(word);
        });
        if (command == words.end()) {
            // Nothing but options of all commands.
            for (auto at = words.begin() + 1; at != words.end(); ++at) {
                EXPECT_TRUE(!at->starts_with("-") || m_global.contains(*at))
                    << place << ": " << line;
            }
            EXPECT_TRUE(words.size() < 2 || words[1].starts_with("-")) << place << ": " << line;
            return;
        }
        const Names& known = m_options.at(*command);
        for (const std::string& word : words) {
            const bool isAnotherCommand = word == "--" && *command == "run";
            if (word == "|" || word == "||" || word == ">" || isAnotherCommand) {
                break;
            }
            const bool isOption = word.size() > 1 && word.starts_with("-") && word != "--";
            EXPECT_TRUE(!isOption || known.contains(word) || m_global.contains(word) ||
                        areShort(word, known))
                << place << ": " << line << ": " << word;
        }
    }

private:
    // "-lR": each letter is one.
    static bool areShort(const std::string& word, const Names& known) {
        return !word.starts_with("--") &&
               std::all_of(word.begin() + 1, word.end(),
                           [&](char letter) { return known.contains(std::string("-") + letter); });
    }

    const Names m_global = listed(helpOf(""), "Options:");
    std::map<std::string, Names> m_options;
};

std::string manual() {
    std::string text = vqtest::readFile((projectPath() / "docs/man/vqreg.1").string());
    for (const char* const font : {"\\fB", "\\fI", "\\fR", "\\fP"}) {
        for (std::size_t at = text.find(font); at != std::string::npos; at = text.find(font)) {
            text.erase(at, 3);
        }
    }
    return std::regex_replace(text, std::regex(R"(\\-)"), "-");
}

// The entry of a command in the manual: its line and what follows, up to the next entry.
std::string entryOf(const std::string& text, const std::string& command) {
    std::smatch found;
    const std::regex start("\n\\.TP\n(\\w+, )*" + command + "(, \\w+)*( [^\n]*)?\n");
    if (!std::regex_search(text, found, start)) {
        return {};
    }
    const auto at = static_cast<std::size_t>(found.position()) + 4;
    return text.substr(at, std::min(text.find("\n.TP\n", at), text.find("\n.S", at)) - at);
}

Names optionsIn(const std::string& text) {
    Names names;
    for (auto at = std::sregex_iterator(text.begin(), text.end(), kOption);
         at != std::sregex_iterator(); ++at) {
        names.insert((*at)[2]);
    }
    return names;
}

}  // namespace

TEST_F(Commands, AreListedByTheHelp) {
    EXPECT_EQ(options().size(), 24u);
    EXPECT_TRUE(global().contains("--file"));
    EXPECT_TRUE(options().at("set").contains("--type"));
}

TEST_F(Commands, OfTheDocumentsAreUnderstood) {
    int lines = 0;
    for (const Document& document : vqtest::documents()) {
        for (std::string code : document.code()) {
            code = std::regex_replace(code, std::regex(R"(^\$ )"), "");
            if (code.starts_with("vqreg ")) {
                ++lines;
                checkLine(code, document.path.string());
            }
        }
    }
    EXPECT_GT(lines, 20);
}

TEST_F(Commands, AreInTheManualWithAllTheirOptions) {
    const std::string text = manual();
    for (const auto& [command, known] : options()) {
        const std::string entry = entryOf(text, command);
        ASSERT_FALSE(entry.empty()) << command;
        const Names described = optionsIn(entry);
        for (const std::string& option : known) {
            const bool isSpared = option == "-h" || option == "--help";  // said once for all
            EXPECT_TRUE(isSpared || described.contains(option)) << command << ' ' << option;
        }
        const std::string usage = entry.substr(0, entry.find('\n'));
        for (const std::string& option : optionsIn(usage)) {
            EXPECT_TRUE(known.contains(option)) << command << " has no " << option;
        }
    }
    for (const std::string& option : global()) {
        EXPECT_TRUE(option == "-h" || text.find(option) != std::string::npos) << option;
    }
}

TEST_F(Commands, ExamplesOfTheManualAreUnderstood) {
    const std::string text = manual();
    std::istringstream in(text.substr(text.find(".SH EXAMPLES")));
    int lines = 0;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("vqreg ")) {
            ++lines;
            checkLine(line, "vqreg.1");
        }
    }
    EXPECT_GT(lines, 3);
}

namespace {

// Runs a piece of shell with the command in its path.
vqtest::CommandResult shell(const std::string& script) {
    const std::string command = VQREG_COMMAND_PATH;
    const std::string path = command.substr(0, command.rfind('/')) + ":" + std::getenv("PATH");
    return vqtest::ChildProcess("/bin/sh", {"-c", "exec 2>&1\n" + script},
                                {{"PATH", path}, {"LC_ALL", "C.UTF-8"}, {"NO_COLOR", "1"}})
        .finish();
}

}  // namespace

// The default store of a private root stands for that of a new machine.
TEST(UserGuide, ConsolePrintsWhatIsShown) {
    int commands = 0;
    for (const CodeBlock& block :
         vqtest::readDocument(projectPath() / "docs/user-guide.md").blocks()) {
        if (block.language != "console") {
            continue;
        }
        std::istringstream in(block.text);
        std::string line;
        std::getline(in, line);
        while (!line.empty()) {
            ASSERT_TRUE(line.starts_with("$ ")) << "line " << block.line << ": " << line;
            const std::string command = line.substr(2);
            std::string shown;
            line.clear();
            while (std::getline(in, line) && !line.starts_with("$ ")) {
                shown += line + '\n';
                line.clear();
            }
            ++commands;
            const vqtest::CommandResult result = shell(command);
            EXPECT_EQ(result.out, shown) << "line " << block.line << ": " << command;
            EXPECT_EQ(result.status, 0) << "line " << block.line << ": " << command;
        }
    }
    EXPECT_GT(commands, 15);
}

TEST(Readme, TheTourRuns) {
    int tours = 0;
    for (const CodeBlock& block : vqtest::readDocument(projectPath() / "README.md").blocks()) {
        if (block.language == "sh" && block.heading == "The command") {
            ++tours;
            const vqtest::CommandResult result = shell("set -e\n" + block.text);
            EXPECT_EQ(result.status, 0) << result.out;
        }
    }
    EXPECT_EQ(tours, 1);
}
