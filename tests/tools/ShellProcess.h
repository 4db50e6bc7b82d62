// Shells that complete the command line of the command.
#ifndef VQTEST_SHELL_PROCESS_H
#define VQTEST_SHELL_PROCESS_H

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/TempStore.h"
#include "tools/TerminalProcess.h"

namespace vqtest {

/// One of bash, zsh and fish with the completion of the command and a home directory of its own.
/// bash and zsh are asked at a terminal, with keys; fish has a command for it.
class ShellProcess {
public:
    explicit ShellProcess(std::string name) : m_name(std::move(name)) {
        if (m_name == "bash") {
            write("bashrc", kBashSetup);
            startInteractive({"--noprofile", "--rcfile", m_home.directory() + "/bashrc", "-i"});
        } else if (m_name == "zsh") {
            write(".zshrc", kZshSetup);
            startInteractive({"-d", "-i"});
        }
    }

    static bool isInstalled(const std::string& name) {
        return std::system(("command -v " + name + " >/dev/null").c_str()) == 0;
    }

    /// What the shell offers in the place of a word that is typed behind others, sorted. The others
    /// are given as the command gets them, the word as a person types it.
    std::vector<std::string> offers(const std::vector<std::string>& before,
                                    const std::string& word) {
        std::string line = "vqreg ";
        for (const std::string& each : before) {
            line += escaped(each) + ' ';
        }
        line += word;
        std::vector<std::string> found =
            m_name == "fish" ? fishOffers(line) : typedOffers(line, word, before.size() + 1);
        std::sort(found.begin(), found.end());
        found.erase(std::unique(found.begin(), found.end()), found.end());
        return found;
    }

private:
    static constexpr const char* kAllOffers = "\x18\x01";
    static constexpr const char* kTell = "\x18\x02";

    // Both have a key that puts all offers into the line and one that prints the line and its words
    // as the command would get them, and clears it.
    static constexpr const char* kBashSetup =
        "PS1='ready>'\n"
        ". " VQREG_COMPLETIONS
        "/vqreg.bash\n"
        "bind 'set bell-style none'\n"
        "bind 'set enable-bracketed-paste off'\n"
        "tell() {\n"
        "    eval \"words=($READLINE_LINE)\"\n"
        "    printf '<<%s\\n' \"$READLINE_LINE\"\n"
        "    printf '%s\\n' \"${words[@]}\"\n"
        "    printf '>>'\n"
        "    READLINE_LINE=\n"
        "}\n"
        "bind '\"\\C-x\\C-a\": insert-completions'\n"
        "bind -x '\"\\C-x\\C-b\": tell'\n";
    static constexpr const char* kZshSetup =
        "PS1='ready>'\n"
        "fpath=(" VQREG_COMPLETIONS
        " $fpath)\n"
        "autoload -Uz compinit\n"
        "compinit -u -d $HOME/dump\n"
        "all() {\n"
        "    _main_complete\n"
        "    compstate[insert]=all\n"
        "    compstate[list]=\n"
        "}\n"
        "zle -C all complete-word all\n"
        "tell() {\n"
        "    local -a words\n"
        "    eval \"words=($BUFFER)\"\n"
        "    print -r -- \"<<$BUFFER\"\n"
        "    print -rl -- \"${words[@]}\"\n"
        "    print -rn -- '>>'\n"
        "    BUFFER=\n"
        "}\n"
        "zle -N tell\n"
        "bindkey -r '^X'\n"
        "bindkey '^X^A' all\n"
        "bindkey '^X^B' tell\n";

    static std::string escaped(const std::string& word) {
        std::string text;
        for (const char c : word) {
            text += c == ' ' ? std::string("\\ ") : std::string(1, c);
        }
        return text;
    }

    void write(const std::string& name, const std::string& text) const {
        std::ofstream(m_home.directory() + "/" + name) << text;
    }

    Environment environment() const {
        const std::string command = VQREG_COMMAND_PATH;
        const char* const path = std::getenv("PATH");
        return {{"HOME", m_home.directory()},
                {"ZDOTDIR", m_home.directory()},
                {"XDG_CONFIG_HOME", m_home.directory()},
                {"XDG_DATA_HOME", m_home.directory()},
                {"TERM", "dumb"},
                {"LC_ALL", "C.UTF-8"},
                {"PATH", command.substr(0, command.rfind('/')) + ":" + (path ? path : "/bin")}};
    }

    void startInteractive(const std::vector<std::string>& arguments) {
        m_shell = std::make_unique<TerminalProcess>(m_name, arguments, environment(),
                                                    TerminalStreams{.columns = 1000});
        m_shell->expect("ready>");
    }

    static std::vector<std::string> linesOf(const std::string& text) {
        std::vector<std::string> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) {
            if (line.ends_with('\r')) {
                line.pop_back();
            }
            lines.push_back(line);
        }
        return lines;
    }

    std::vector<std::string> typedOffers(const std::string& line, const std::string& word,
                                         std::size_t count) const {
        // bash would take an open quote away before it puts all offers into the line. It is asked for
        // the only one then.
        const bool isQuoted = m_name == "bash" && word.find_first_of("'\"") == 0;
        m_shell->type(line + (isQuoted ? "\t" : kAllOffers) + kTell);
        m_shell->expect("<<");
        std::vector<std::string> words = linesOf(m_shell->expect(">>"));
        const bool isUnchanged = words.at(0) == line;
        words.erase(words.begin(),
                    words.begin() + static_cast<std::ptrdiff_t>(std::min(words.size(), 1 + count)));
        return isUnchanged ? std::vector<std::string>() : words;
    }

    // Behind each offer are a tabulator and what it is.
    std::vector<std::string> fishOffers(const std::string& line) const {
        TerminalProcess fish(
            "fish",
            {"--no-config", "-c", "source " VQREG_COMPLETIONS "/vqreg.fish; complete -C $argv[1]",
             line},
            environment(), {.in = false, .out = false, .err = false});
        std::vector<std::string> found = linesOf(fish.finish().out);
        for (std::string& offer : found) {
            offer = offer.substr(0, offer.find('\t'));
        }
        return found;
    }

    const std::string m_name;
    TempStore m_home;
    std::unique_ptr<TerminalProcess> m_shell;
};

}  // namespace vqtest

#endif  // VQTEST_SHELL_PROCESS_H
