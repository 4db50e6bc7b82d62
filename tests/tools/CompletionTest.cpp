// The completion of bash, run in a bash without a terminal.
#include <cstdio>

#include "tools/VqregStore.h"

class Completion : public vqtest::VqregStore {
protected:
    // What bash would offer for the last word, one offer per line.
    static std::string offers(const std::string& words) {
        const std::string command = "bash -c '. " VQREG_COMPLETIONS
                                    "/vqreg.bash\n"
                                    "COMP_WORDS=(" VQREG_COMMAND_PATH " " +
                                    words +
                                    ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_vqreg\n"
                                    "printf \"%s\\n\" \"${COMPREPLY[@]}\"'";
        std::string text;
        std::FILE* const pipe = ::popen(command.c_str(), "r");
        for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) {
            text += static_cast<char>(c);
        }
        ::pclose(pipe);
        return text;
    }
};

TEST_F(Completion, CommandsAndOptions) {
    EXPECT_EQ(offers("re"), "restore\n");
    EXPECT_EQ(offers("\"\"").substr(0, 12), "get\nset\nrm\nm");
    EXPECT_EQ(offers("tree --js"), "--json\n");
    EXPECT_EQ(offers("tree --fi"), "--file\n");
    EXPECT_EQ(offers("--color a"), "auto\nalways\n");
    EXPECT_EQ(offers("set -t d"), "dword\n");
}

TEST_F(Completion, NamesOfTheStore) {
    make({"set", "Net work/Dns", "First Server", "1"});
    make({"set", "Net work/Dns", "Second", "1"});
    make({"set", "Net", "Port", "1"});
    const std::string store = "--file " + file.path() + ' ';
    EXPECT_EQ(offers(store + "get N"), "Net\nNet\\ work\nNet\\ work/Dns\n");
    EXPECT_EQ(offers(store + "get Net p"), "Port\n");
    EXPECT_EQ(offers(store + "get \"Net\\\\ work/Dns\" \"\""), "First\\ Server\nSecond\n");
    EXPECT_EQ(offers(store + "mv Net Port \"Net\\\\ work/\""), "Net\\ work/Dns\n");
    EXPECT_EQ(offers("--file = " + file.path() + " rm Net \"\""), "Port\n");
}
