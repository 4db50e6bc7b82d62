/// Fresh processes of a contender, which open its store and make one query.
#ifndef VQREG_BENCH_FRESH_PROCESS_H
#define VQREG_BENCH_FRESH_PROCESS_H

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "support/System.h"

namespace bench {

// Nanoseconds.
struct FirstAnswer {
    double whole = 0;   // from the parent's call that makes the process to the answer
    double inside = 0;  // of these, what the program itself has spent, its start left out
};

// What a program prints; `begin` is when it was started.
inline std::string outputOf(const char* const (&arguments)[5], std::int64_t& begin) {
    int ends[2] = {};
    require(pipe2(ends, O_CLOEXEC) == 0, "no pipe");
    posix_spawn_file_actions_t actions;
    require(posix_spawn_file_actions_init(&actions) == 0 &&
                posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO) == 0,
            "no process");
    pid_t process = -1;
    begin = now();
    const int error = posix_spawn(&process, arguments[0], &actions, nullptr,
                                  const_cast<char* const*>(arguments), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::string output;
    char block[128];
    for (ssize_t size = 0; error == 0 && (size = read(ends[0], block, sizeof block)) > 0;) {
        output.append(block, static_cast<std::size_t>(size));
    }
    close(ends[0]);
    int status = -1;
    require(error == 0 && waitpid(process, &status, 0) == process && status == 0,
            "a fresh process has failed");
    return output;
}

inline FirstAnswer firstAnswer(const std::string& program, const std::string& directory,
                               std::size_t values) {
    const std::string number = std::to_string(values);
    const char* const arguments[] = {program.c_str(), "first", directory.c_str(), number.c_str(),
                                     nullptr};
    std::int64_t begin = 0;
    const std::string output = outputOf(arguments, begin);
    long long end = 0;
    long long inside = 0;
    require(std::sscanf(output.c_str(), "%lld %lld", &end, &inside) == 2,
            "a fresh process has not answered");
    return {static_cast<double>(end - begin), static_cast<double>(inside)};
}

}  // namespace bench

#endif  // VQREG_BENCH_FRESH_PROCESS_H
