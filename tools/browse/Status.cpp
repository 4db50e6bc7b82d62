#include "tools/browse/Status.h"

#include <fmt/format.h>

#include "tools/vqreg/store/LockInfo.h"
#include "tools/vqreg/store/OpenIn.h"

namespace vqreg {

namespace {

constexpr int kShareOfLooking = 20;  // the looking takes one of so many parts of the time at most

}  // namespace

void Status::refresh(bool isWanted, pid_t writer) {
    const Clock::time_point now = Clock::now();
    if (isWanted || now >= m_nextLook) {
        Openers openers = processesWith(m_file);
        std::erase_if(openers.processes, [&](const OpenIn& each) { return each.pid == writer; });
        const bool hasAny = !openers.processes.empty() || openers.hidden > 0;
        m_allOpeners = openers.text();
        m_openers = hasAny ? m_allOpeners : std::string();
        const Clock::time_point end = Clock::now();
        m_nextLook = end + kShareOfLooking * (end - now);
    }
    const auto holder = lockHolder(m_file);
    m_text = fmt::format(" | lock: {} | open in: {}", holder ? "held by " + holder->text() : "free",
                         m_allOpeners);
}

}  // namespace vqreg
