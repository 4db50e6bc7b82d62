// Why a fork has to wait. A line asks for the local time, which takes a lock of the C library; a thread of
// the parent that holds it at the fork does not exist in the child, where the next line would wait for it
// for ever. The child is often about to exec, but not always: daemons fork and go on.
//
// Neither side may wait without end. A program's own fork handlers may be waiting for a thread that waits
// here, and a signal handler may fork in the middle of a line of the same thread, which is then counted
// out. After a second everybody goes on: a small risk of what would otherwise be certain.
#include "RegLib/trace/Gate.h"

#include <atomic>
#include <thread>

#include "portable/Portable.h"

namespace VQRegLib {

namespace {

constexpr int kYields = 100;  // most lines are finished sooner
constexpr int kNaps = 1000;
constexpr unsigned long kNapMilliseconds = 1;

std::atomic<int> g_threadsInside{0};
std::atomic<int> g_forks{0};  // under way; several threads may fork at once

thread_local int t_depth = 0;
thread_local bool t_isForking = false;

// False when the waiting has lasted long enough.
bool pause(int round) {
    if (round < kYields) {
        std::this_thread::yield();
    } else {
        CPortable::Sleep(kNapMilliseconds);
    }
    return round < kYields + kNaps;
}

// A fork in a signal handler may have interrupted a line of the same thread.
int insideByThisThread() {
    return t_depth > 0 ? 1 : 0;
}

}  // namespace

CTraceGate::CPass::CPass() {
    if (t_depth++ > 0) {
        return;
    }
    ++g_threadsInside;
    for (int round = 0; g_forks.load() != 0 && !t_isForking; ++round) {
        --g_threadsInside;
        const bool goesOn = pause(round);
        ++g_threadsInside;
        if (!goesOn) {
            return;
        }
    }
}

CTraceGate::CPass::~CPass() {
    if (--t_depth == 0) {
        --g_threadsInside;
    }
}

void CTraceGate::beforeFork() {
    t_isForking = true;
    ++g_forks;
    for (int round = 0; g_threadsInside.load() > insideByThisThread() && pause(round); ++round) {
    }
}

void CTraceGate::afterForkInParent() {
    --g_forks;
    t_isForking = false;
}

// The other threads do not exist here.
void CTraceGate::afterForkInChild() {
    g_threadsInside.store(insideByThisThread());
    g_forks.store(0);
    t_isForking = false;
}

}  // namespace VQRegLib
