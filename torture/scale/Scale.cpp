#include "scale/Scale.h"

#include <malloc.h>
#include <time.h>
#include <unistd.h>

#include "load/Usage.h"

namespace vqtorture {

namespace {

constexpr double kMostGrowth = 5;
constexpr double kNanoseconds = 1e9;

}  // namespace

double processorSeconds() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / kNanoseconds;
}

double secondsOf(const std::function<void()>& work) {
    const double begin = processorSeconds();
    work();
    return processorSeconds() - begin;
}

double allocatedBytes() {
    const struct mallinfo2 all = ::mallinfo2();
    return static_cast<double>(all.uordblks + all.hblkhd);
}

double residentKibibytes() {
    return memoryOf(::getpid());
}

void requireGrowth(Run& run, const std::string& name, double ofTenth, double ofAll) {
    run.highest(name + "_ns_each", ofAll * kNanoseconds);
    run.highest(name + "_growth", ofAll / ofTenth);
    require(ofAll <= kMostGrowth * ofTenth, name + " costs " + std::to_string(ofAll / ofTenth) +
                                                " times as much among ten times as many");
}

void requireCode(int code, int expected, const std::string& what) {
    require(code == expected, what + " answers " + std::to_string(code));
}

std::string freshStore(Run& run, const std::string& name) {
    return run.directory() + "/" + name + ".cfg";
}

}  // namespace vqtorture
