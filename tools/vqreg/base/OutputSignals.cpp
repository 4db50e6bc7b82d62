#include "tools/vqreg/base/OutputSignals.h"

#include <csignal>

namespace vqreg {

namespace {

struct sigaction g_pipe {};
struct sigaction g_size {};

void ignore(int signal, struct sigaction& before) {
    struct sigaction action {};
    action.sa_handler = SIG_IGN;
    sigaction(signal, &action, &before);
}

}  // namespace

void ignoreOutputSignals() {
    ignore(SIGPIPE, g_pipe);
    ignore(SIGXFSZ, g_size);
}

void giveBackOutputSignals() {
    sigaction(SIGPIPE, &g_pipe, nullptr);
    sigaction(SIGXFSZ, &g_size, nullptr);
}

}  // namespace vqreg
