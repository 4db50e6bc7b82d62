#include "tools/vqreg/terminal/Confirm.h"

#include <unistd.h>

#include <cstdio>

#include "tools/vqreg/terminal/Interruption.h"

namespace vqreg {

namespace {

// What comes next shall not stand behind the question.
void endLine() {
    std::fputc('\n', stderr);
}

}  // namespace

bool confirm(const std::string& question) {
    if (::isatty(STDIN_FILENO) != 1) {
        return true;
    }
    const Interruption interruption;
    std::fprintf(stderr, "vqreg: %s [y/N] ", question.c_str());
    try {
        const std::optional<std::string> answer = Interruption::readLine();
        if (!answer) {
            endLine();
        }
        return answer == "y" || answer == "Y" || answer == "yes";
    } catch (const Interrupted&) {
        endLine();
        throw;
    }
}

}  // namespace vqreg
