// vqreg: looks into a configuration store and changes it.
#include "tools/vqreg/base/Startup.h"
#include "tools/vqreg/commands/Command.h"

int main(int argc, char** argv) {
    vqreg::prepareProcess();
    return vqreg::runCommand(argc, argv);
}
