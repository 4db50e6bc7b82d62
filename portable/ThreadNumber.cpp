#include "portable/ThreadNumber.h"

#include <atomic>

namespace VQRegLib {

constinit thread_local std::uint64_t t_threadNumber = 0;

std::uint64_t numberThisThread() {
    static std::atomic<std::uint64_t> last{0};
    t_threadNumber = ++last;
    return t_threadNumber;
}

}  // namespace VQRegLib
