// A counter that many processes share. Adding one is a query and a set; nobody else may change the store
// in between, so that no count is lost.
//
//   count STORE|- KEY PROCESSES TIMES
//
// Starts PROCESSES processes; each adds one TIMES times to the dword "Count" of KEY.
#include <VQRegStore.h>
#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

namespace {

// Each process opens its own store: nothing of one crosses a fork.
void count(const char* file, const char* path, unsigned times) {
    const vqreg::Store store(file);
    vqreg::Key key = store.create(path);
    for (unsigned i = 0; i < times; ++i) {
        store.exclusively([&] { key.set("Count", key.get_or("Count", 0u) + 1); });
    }
}

int resultOf(const char* file, const char* path, unsigned times) {
    try {
        count(file, path, times);
        return 0;
    } catch (const std::exception&) {
        return 1;
    }
}

bool countInProcesses(const char* file, const char* path, unsigned processes, unsigned times) {
    bool isStarted = true;
    for (unsigned i = 0; i < processes; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            _exit(resultOf(file, path, times));
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
    const char* const file = std::strcmp(argv[1], "-") == 0 ? nullptr : argv[1];
    const auto start = std::chrono::steady_clock::now();
    if (!countInProcesses(file, argv[2], *processes, *times)) {
        std::fprintf(stderr, "count: a process could not count\n");
        return 1;
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    try {
        const vqreg::Key key = vqreg::Store(file).key(argv[2]);
        std::printf("Count is %u\n", key.get_or("Count", 0u));
    } catch (const vqreg::Error& error) {
        std::fprintf(stderr, "count: %s\n", error.what());
        return 1;
    }
    std::fprintf(stderr, "%.2f s\n", took.count());
    return 0;
}
