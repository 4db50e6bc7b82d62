// vqreg export --env: what units of the service manager and shells read.
#include <gmock/gmock.h>

#include <fstream>
#include <map>
#include <random>
#include <sstream>

#include "tools/EnvironmentFile.h"
#include "tools/VqregStore.h"

using testing::HasSubstr;
using vqtest::Arguments;
using vqtest::CommandResult;
using vqtest::fails;
using vqtest::prints;

namespace {

using Variables = std::map<std::string, std::string>;

// Texts that something might be put in the place of.
const std::vector<std::string> kHostile = {
    "",
    " ",
    " both ends\t",
    "\\",
    "\\\\",
    "ends in \\",
    "\"",
    "'",
    "a\"b'c`d",
    "$HOME ${HOME} $$ $(echo gone) $((1+1))",
    "`echo gone`",
    "\\n\\t\\x41\\'\\\"",
    "#comment",
    ";comment",
    "a=b=c",
    "a;b&c|d>e<f*g?[h]!i~",
    "~/x",
    "!!",
    "%n%%",
    "\x01\x02\x1b[31m\x7f",
    "\t",
    "gr\xC3\xBC\xC3\x9F \xE2\x82\xAC \xF0\x9F\x90\xA7",
    "\xC2\x81\xC2\x82\xC2\x88",  // bytes that shells use within themselves
};

class ExportEnvironment : public vqtest::VqregStore {
protected:
    void store(const std::string& name, const std::string& text) const {
        make({"set", "-t", "string", "App", "--", name, text});
    }

    // The lines, in a file for others to read.
    std::string exported() const {
        const CommandResult result = run({"export", "--env", "App"});
        EXPECT_EQ(result.status, 0) << result.err;
        std::ofstream(linesPath()) << result.out;
        return result.out;
    }
    std::string linesPath() const { return file.directory() + "/lines.env"; }

    // What a program gets that a shell starts after it has read the lines.
    Variables readBy(const std::string& shell, const std::string& way) const {
        const CommandResult result =
            vqtest::ChildProcess("/usr/bin/env",
                                 {"-i", shell, "-c", "set -a; " + way + "; exec /usr/bin/env -0",
                                  shell, linesPath()})
                .finish();
        EXPECT_EQ(result.status, 0) << shell << ": " << result.err;
        EXPECT_EQ(result.err, "") << shell;
        Variables variables;
        std::istringstream in(result.out);
        for (std::string each; std::getline(in, each, '\0');) {
            variables[each.substr(0, each.find('='))] = each.substr(each.find('=') + 1);
        }
        for (const char* const own : {"PWD", "SHLVL", "_", "OLDPWD", "HOME", "LOGNAME"}) {
            variables.erase(own);
        }
        return variables;
    }

    void expectReadAs(const Variables& expected) const {
        const std::string lines = exported();
        EXPECT_EQ(vqtest::EnvironmentFile(lines).variables(), expected);
        for (const char* const shell : {"/bin/dash", "/bin/bash", "/bin/zsh"}) {
            if (std::ifstream(shell).good()) {
                EXPECT_EQ(readBy(shell, ". \"$1\""), expected) << shell;
                EXPECT_EQ(readBy(shell, "eval \"$(cat \"$1\")\""), expected) << shell;
            }
        }
    }
};

}  // namespace

TEST_F(ExportEnvironment, WritesEachTypeAsGetPrintsIt) {
    make({"set", "App", "Port", "8080"});
    make({"set", "App", "Interface", "eth0"});
    make({"set", "-t", "binary", "App", "Mac", "0010a4c3"});
    make({"set", "App", "Most", "4294967295"});
    EXPECT_EQ(run({"export", "--env", "App"}), prints("INTERFACE=\"eth0\"\n"
                                                      "MAC=\"0010A4C3\"\n"
                                                      "MOST=\"4294967295\"\n"
                                                      "PORT=\"8080\"\n"));
    EXPECT_EQ(run({"export", "--env", "--prefix", "App_", "App"}).out,
              "App_INTERFACE=\"eth0\"\nApp_MAC=\"0010A4C3\"\nApp_MOST=\"4294967295\"\n"
              "App_PORT=\"8080\"\n");
}

TEST_F(ExportEnvironment, IsOfTheKeyAloneWithoutItsSubKeys) {
    make({"set", "App", "Port", "1"});
    make({"set", "App/Sub", "Other", "2"});
    EXPECT_EQ(run({"export", "--env", "app/"}), prints("PORT=\"1\"\n"));
    EXPECT_EQ(run({"export", "--env"}), prints(""));
}

TEST_F(ExportEnvironment, UnitsAndShellsReadHostileTextsAsTheyAre) {
    Variables expected;
    for (std::size_t i = 0; i < kHostile.size(); ++i) {
        store("V" + std::to_string(i), kHostile[i]);
        expected["V" + std::to_string(i)] = kHostile[i];
    }
    expectReadAs(expected);
}

TEST_F(ExportEnvironment, UnitsAndShellsReadAnyTextAsItIs) {
    std::mt19937 random{7};
    static constexpr std::string_view kBytes = "\"\\`$'#;= \t!*a1\x01\x7f{}()";
    Variables expected;
    std::string lines = "[Velquist]\n[Velquist/App]\n";
    for (int i = 0; i < 400; ++i) {
        std::string text;
        for (std::size_t size = random() % 24; size > 0; --size) {
            text += kBytes[random() % kBytes.size()];
        }
        const std::string name = "V" + std::to_string(i);
        lines += '"' + name + "\"=string:" + text + '\n';
        expected[name] = text;
    }
    file.write(lines);
    expectReadAs(expected);
}

TEST_F(ExportEnvironment, MakesNamesThatEveryShellTakes) {
    const std::vector<std::pair<std::string, std::string>> names = {
        {"Http Port", "HTTP_PORT"},
        {"a.b-c/d\\e", "A_B_C_D_E"},
        {"9lives", "_9LIVES"},
        {"$(echo gone)", "__ECHO_GONE_"},
        {"x\ny", ""},
        {"`;'#!", "_____"},
        {"Gr\xC3\xB6\xC3\x9F"
         "e",
         "GR__E"},
        {"\xFF\xFE.", "___"},
        {"already_GOOD_1", "ALREADY_GOOD_1"},
        {"", "DEFAULT"},
    };
    Variables expected;
    for (const auto& [name, variable] : names) {
        if (!variable.empty()) {
            store(name, "of " + variable);
            expected[variable] = "of " + variable;
        }
    }
    expectReadAs(expected);
}

TEST_F(ExportEnvironment, APrefixIsTakenAsItStands) {
    store("9lives", "x");
    store("", "y");
    EXPECT_EQ(run({"export", "--env", "--prefix", "a_Z9", "App"}),
              prints("a_Z9DEFAULT=\"y\"\na_Z99LIVES=\"x\"\n"));
    EXPECT_EQ(run({"export", "--env", "--prefix=", "App"}),
              prints("DEFAULT=\"y\"\n_9LIVES=\"x\"\n"));
    for (const std::string bad : {"9", "a-b", "a b", "\xC3\xB6", "$x", "="}) {
        EXPECT_EQ(run({"export", "--env", "--prefix", bad, "App"}).status, 2) << bad;
    }
}

TEST_F(ExportEnvironment, TwoValuesOfOneVariableAreRefusedByName) {
    store("Http Port", "1");
    store("http-port", "2");
    EXPECT_EQ(
        run({"export", "--env", "App"}),
        fails(5,
              "the values \"Http Port\" and \"http-port\" would both be the variable HTTP_PORT"));
}

TEST_F(ExportEnvironment, VariablesThatSteerOtherProgramsWantAPrefix) {
    for (const std::string name : {"Path",
                                   "LD_PRELOAD",
                                   "ld library path",
                                   "Bash Env",
                                   "PythonPath",
                                   "IFS",
                                   "Env",
                                   "Perl5Opt",
                                   "Notify-Socket",
                                   "Openssl Conf",
                                   "GIO extra modules",
                                   "Gtk Modules",
                                   "QT_PLUGIN_PATH",
                                   "Dotnet Startup Hooks",
                                   "Https Proxy",
                                   "Editor",
                                   "Pager",
                                   "LessOpen",
                                   "ZDotDir",
                                   "Php Ini Scan Dir",
                                   "krb5 config",
                                   "SslKeyLogFile",
                                   "lc all",
                                   "Posixly Correct",
                                   "TMOUT",
                                   "Vqreg Sync",
                                   "Credentials Directory",
                                   "Watchdog USec",
                                   "XDG data dirs"}) {
        SCOPED_TRACE(name);
        store(name, "x");
        const CommandResult result = run({"export", "--env", "App"});
        EXPECT_EQ(result.status, 5);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, HasSubstr("\"" + name + "\" would be the variable "));
        EXPECT_THAT(result.err, HasSubstr(", which steers other programs; give it a --prefix\n"));
        EXPECT_EQ(run({"export", "--env", "--prefix", "P_", "App"}).status, 0);
        make({"rm", "-r", "-f", "App"});
    }
}

// A shell would not keep the text of these.
TEST_F(ExportEnvironment, VariablesOfShellsWantAPrefix) {
    for (const std::string name : {"_", ".", "Uid", "Seconds", "Random", "PPID", "LineNo", "Pwd"}) {
        store(name, "x");
        EXPECT_THAT(run({"export", "--env", "App"}).err,
                    HasSubstr(", which shells keep for themselves; give it a --prefix\n"))
            << name;
        EXPECT_EQ(run({"export", "--env", "--prefix", "P_", "App"}).status, 0) << name;
        make({"rm", "-r", "-f", "App"});
    }
}

TEST_F(ExportEnvironment, TextsThatNoUnitMayHaveAreRefused) {
    for (const std::string text :
         {"\xFF", "a\xC3", "\xED\xA0\x80", "\xEF\xBF\xBE", "\xEF\xB7\x90", "\xF0\x9F\xBF\xBF"}) {
        store("Odd name", text);
        EXPECT_EQ(run({"export", "--env", "App"}),
                  fails(5,
                        "the text of the value \"Odd name\" is not UTF-8 or has a code point that "
                        "is no character, and EnvironmentFile= of a unit takes no such text"));
    }
    // Beside those; the last one, at the beginning of a file, would be a mark of its encoding.
    for (const std::string text : {"\xEF\xBB\xBE\xEF\xB7\x8F", "\xEF\xBB\xBF"}) {
        store("Odd name", text);
        EXPECT_EQ(run({"export", "--env", "App"}).status, 0);
    }
}

TEST_F(ExportEnvironment, AMissingKeyIsSaid) {
    store("a", "b");
    EXPECT_EQ(run({"export", "--env", "Nothing"}), fails(1, "the key \"Nothing\" does not exist"));
    EXPECT_EQ(run({"export", "--env", "App/a"}).status, 5);
}

TEST_F(ExportEnvironment, GoesNeitherWithJsonNorWithoutItself) {
    const std::string usage = "\nusage: vqreg export [--json] [--env] [--prefix P] [KEY]";
    EXPECT_EQ(run({"export", "--env", "--json", "App"}),
              fails(2, "--json and --env exclude each other" + usage));
    EXPECT_EQ(run({"export", "--prefix", "P", "App"}),
              fails(2, "--prefix needs --env too" + usage));
}
