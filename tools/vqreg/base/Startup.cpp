#include "tools/vqreg/base/Startup.h"

#include <fcntl.h>
#include <unistd.h>

#include <clocale>

#include "tools/vqreg/base/OutputSignals.h"

namespace vqreg {

namespace {

// A file that takes the place of a stream which was closed would be written to as if it were it.
void fillClosedStreams() {
    int fd = 0;
    do {
        fd = ::open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    ::close(fd);
}

}  // namespace

void prepareProcess() {
    fillClosedStreams();
    std::setlocale(LC_CTYPE, "");
    // A closed pipe ends the command quietly then, and a limit of file sizes leaves nothing half written.
    ignoreOutputSignals();
}

}  // namespace vqreg
