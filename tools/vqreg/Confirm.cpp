#include "tools/vqreg/Confirm.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>

namespace vqreg {

bool confirm(const std::string& question) {
    if (::isatty(STDIN_FILENO) != 1) {
        return true;
    }
    std::fprintf(stderr, "vqreg: %s [y/N] ", question.c_str());
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace vqreg
