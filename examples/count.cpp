// A counter that many processes share. Adding one is a query and a set; an update around them keeps
// every other process out in between, so that no count is lost.
//
//   count STORE|- KEY PROCESSES TIMES
//
// Starts PROCESSES processes; each adds one TIMES times to the dword "Count" of KEY.
#include <VQRegLib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string_view>

#include "examples/Values.h"

namespace {

using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

bool addOne(CRegLib& session, CRegKey& key) {
    VQRegLib::CRegUpdate update(session);
    if (update.result() < 0) {
        return false;
    }
    const auto count = example::number(session, key, "Count", 0);
    return count && session.VQRegSetValue(key, "Count", *count + 1ul) >= 0 && update.end() >= 0;
}

// Each process opens its own session: nothing of a store crosses a fork.
int count(const char* store, const char* path, unsigned times) {
    CRegLib session(store, nullptr, CRegLib::eLocationDefault, nullptr);
    CRegKey key;
    if (session.VQRegCreateKey(nullptr, path, key, 1) < 0) {
        return 1;
    }
    for (unsigned i = 0; i < times; ++i) {
        if (!addOne(session, key)) {
            return 1;
        }
    }
    return 0;
}

bool countInProcesses(const char* store, const char* path, unsigned processes, unsigned times) {
    bool isStarted = true;
    for (unsigned i = 0; i < processes; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            _exit(count(store, path, times));
        }
        isStarted &= child > 0;
    }
    bool isCounted = isStarted;
    int status = 0;
    while (wait(&status) > 0) {
        isCounted &= WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    return isCounted;
}

std::optional<unsigned> parse(std::string_view text) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number)
                                                                    : std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
    const auto processes = argc == 5 ? parse(argv[3]) : std::nullopt;
    const auto times = argc == 5 ? parse(argv[4]) : std::nullopt;
    if (!processes || !times) {
        std::fprintf(stderr, "usage: count STORE|- KEY PROCESSES TIMES\n");
        return 2;
    }
    const char* const store = example::storePath(argv[1]);
    const auto start = std::chrono::steady_clock::now();
    if (!countInProcesses(store, argv[2], *processes, *times)) {
        std::fprintf(stderr, "count: a process could not count\n");
        return 1;
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;

    CRegLib session(store, nullptr, CRegLib::eLocationDefault, nullptr);
    CRegKey key;
    if (session.VQRegCreateKey(nullptr, argv[2], key, 0) < 0) {
        std::fprintf(stderr, "count: there is nothing to count in\n");
        return 1;
    }
    std::printf("Count is %u\n", example::number(session, key, "Count", 0).value_or(0));
    std::fprintf(stderr, "%.2f s\n", took.count());
    return 0;
}
