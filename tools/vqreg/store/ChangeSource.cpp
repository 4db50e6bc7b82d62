#include "tools/vqreg/store/ChangeSource.h"

#include <algorithm>

namespace vqreg {

namespace {

constexpr auto kSlowPoll = std::chrono::seconds(1);

}  // namespace

ChangeSource::ChangeSource(const std::string& file) : m_nextPoll(Clock::now() + kSlowPoll) {
    (void)m_file.open(file);
}

// The descriptor is readable for the neighbours of the file as well: they must not put off the poll.
eNews ChangeSource::take() {
    const bool isTold = m_file.take();
    const Clock::time_point now = Clock::now();
    if (!isTold && now < m_nextPoll) {
        return eNews::eNone;
    }
    m_nextPoll = now + kSlowPoll;
    return isTold ? eNews::eChange : eNews::eSlowPoll;
}

int millisecondsUntil(ChangeSource::Clock::time_point time) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(time - ChangeSource::Clock::now());
    return static_cast<int>(std::max<long long>(left.count(), 0));
}

}  // namespace vqreg
