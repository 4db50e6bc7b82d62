// Checks that end in each way that a check can end: the test of scripts/torture is after what it makes
// of them.
#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "power/Disk.h"
#include "support/Acknowledged.h"
#include "support/Torture.h"

namespace {

using vqtorture::Run;

// A relative path would be looked up in the working directory at every access.
void holds(Run& run) {
    vqtorture::require(run.directory().starts_with('/'), "no absolute path: " + run.directory());
    run.add("turns", static_cast<double>(run.count()));
    run.highest("largest", static_cast<double>(run.seed() % 1000));
}

// What the test of the driver changes from one run to the next.
bool isSet(const char* variable) {
    return std::getenv(variable) != nullptr;
}

void fails(Run& run) {
    run.add("turns");
    vqtorture::require(isSet("TORTURE_SELF_MENDED"),
                       "seed " + std::to_string(run.seed()) + " does not hold");
}

void cannot(Run& run) {
    if (!isSet("TORTURE_SELF_ALLOWED")) {
        throw vqtorture::CannotRun("nobody can");
    }
    run.add("turns");
}

[[noreturn]] void sleepForLong() {
    for (;;) {
        ::pause();
    }
}

void alone(Run&) {
    sleepForLong();
}

// In a session of its own, so that the signal to the check's group does not reach it; and one more, whose
// parent is gone.
void leaves(Run&) {
    if (::fork() == 0) {
        ::setsid();
        if (::fork() == 0) {
            sleepForLong();
        }
        ::_exit(0);
    }
}

// Who puts back what the check has changed begins when the check is no more, and takes a moment.
void leaveWhoPutsBack(const char* file) {
    const pid_t check = ::getpid();
    if (::fork() == 0) {
        ::setsid();
        while (::getppid() == check) {
            ::usleep(10'000);
        }
        ::usleep(200'000);
        std::ofstream(file) << "put back\n";
        ::_exit(0);
    }
}

void hangs(Run& run) {
    const char* const file = std::getenv("TORTURE_SELF_FILE");
    vqtorture::require(file != nullptr, "TORTURE_SELF_FILE is not set");
    leaves(run);
    leaveWhoPutsBack(file);
    sleepForLong();
}

// A long run counts more numbers than are known at a time: of the last ones each is told once.
void tells(Run&) {
    using vqtorture::kNumbersKnown;
    const auto told = std::make_unique<vqtorture::Acknowledged>();
    for (const std::uint32_t first : {1u, kNumbersKnown - 40, 2 * kNumbersKnown - 40}) {
        for (std::uint32_t number = first; number < first + 80; ++number) {
            vqtorture::require(told->add(number), "nobody was told of " + std::to_string(number));
        }
        vqtorture::require(!told->add(first + 40), "two were told of one number");
    }
    vqtorture::require(told->add(41), "who comes a turn too late passes for the second one");
    vqtorture::require(!told->add(2 * kNumbersKnown), "who comes too late wipes out what is known");
}

// Where the outer file system lay there are zeroes. Only the first time a disk may be one that this machine
// does not allow.
void damaged(Run& run) {
    vqtorture::Disk disk(run, {"ext4", "", "mkfs.ext4 -q -F", 8});
    disk.cutPower();
    std::fstream(run.directory() + "/outer.image", std::ios::in | std::ios::out | std::ios::binary)
        << std::string(1 << 20, '\0');
    try {
        disk.start();
    } catch (const vqtorture::CannotRun&) {
        vqtorture::require(false, "a disk that is lost passes for one that is not allowed");
    }
}

}  // namespace

int main(int argc, char** argv) {
    return vqtorture::runOneOf({{"holds", holds},
                                {"pair", holds},
                                {"fails", fails},
                                {"cannot", cannot},
                                {"alone", alone},
                                {"waits", hangs},
                                {"hangs", hangs},
                                {"leaves", leaves},
                                {"tells", tells},
                                {"damaged", damaged}},
                               argc, argv);
}
