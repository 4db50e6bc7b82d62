#include "portable/ProcessMark.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace VQRegLib {

namespace {

std::atomic<std::uint32_t> g_forks{0};

void countFork() {
    ++g_forks;
}

}  // namespace

std::uint32_t CProcessMark::forks() {
    static const int registered = pthread_atfork(nullptr, nullptr, countFork);
    (void)registered;
    return g_forks.load();
}

CProcessMark::CProcessMark() : m_pid(::getpid()), m_forks(forks()) {}

bool CProcessMark::isOfThisProcess() const {
    return m_forks == forks() && m_pid == ::getpid();
}

}  // namespace VQRegLib
