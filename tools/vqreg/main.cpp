// vqreg: looks into a configuration store and changes it.
#include <clocale>
#include <csignal>

#include "tools/vqreg/Command.h"

int main(int argc, char** argv) {
    std::setlocale(LC_CTYPE, "");
    // A closed pipe shall be a failure of write, which ends the command quietly.
    std::signal(SIGPIPE, SIG_IGN);
    return vqreg::runCommand(argc, argv);
}
