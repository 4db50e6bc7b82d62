// One side of scripts/compare: random operations with whatever library is found, and all that they
// give back, on standard output.
//
//   driver DIRECTORY SEED FIRST-EPISODE EPISODES OPERATIONS [whole]
//
// Each episode begins without files and is the same whatever was before it.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "Play.h"

int main(int count, char** arguments) {
    if (count != 6 && count != 7) {
        std::fputs("five or six arguments are needed\n", stderr);
        return 2;
    }
    const auto number = [arguments](int index) {
        return std::strtoull(arguments[index], nullptr, 10);
    };
    try {
        // What is read line by line is there line by line, also when the library fails.
        std::setvbuf(stdout, nullptr, count == 7 ? _IOLBF : _IOFBF, 1 << 20);
        for (auto episode = number(3); episode < number(3) + number(4); ++episode) {
            std::printf("=== episode %llu\n", episode);
            vqcompare::Play play(arguments[1], number(2) * 1'000'003 + episode, count == 7);
            for (auto step = number(5); step > 0; --step) {
                play.step();
            }
        }
    } catch (const std::exception& error) {
        std::printf("ended by %s\n", error.what());
        std::fprintf(stderr, "driver: %s\n", error.what());
        return 1;
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
