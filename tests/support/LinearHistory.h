// What threads have read and written, with the times, and whether that has one order.
#ifndef VQTEST_LINEAR_HISTORY_H
#define VQTEST_LINEAR_HISTORY_H

#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <set>
#include <vector>

namespace vqtest {

constexpr std::size_t kMostEvents = 1u << 15;

inline std::int64_t now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

// A write, or several readings by one thread that brought the same number. Of these the first end
// and the last begin matter: a later begin asks more of the number, an earlier end more of others.
struct Event {
    std::int64_t begin;  // the last
    std::int64_t end;    // the first; 0: never
    std::int32_t object;
    std::uint32_t number;
    bool isWrite;
};

// What one thread has done, also through the deaths of its processes. The size is stored last.
struct History {
    std::atomic<std::size_t> size;
    std::array<Event, kMostEvents> events;

    bool isFull() const { return size >= kMostEvents; }
    Event* add(const Event& event) {
        const std::size_t at = size;
        events[at] = event;
        size.store(at + 1, std::memory_order_release);
        return &events[at];
    }
};

// The histories of one object.
class Judge {
public:
    template <typename Histories>
    Judge(const Histories& histories, int object, std::uint32_t first) : m_first(first) {
        for (const History& history : histories) {
            const std::size_t size = std::min(history.size.load(), kMostEvents);
            std::copy_if(history.events.begin(),
                         history.events.begin() + static_cast<std::ptrdiff_t>(size),
                         std::back_inserter(m_events),
                         [&](const Event& event) { return event.object == object; });
        }
    }

    std::size_t acknowledged() const { return count(true); }

    // All that was read had been written, and no number was acknowledged to two writers.
    void expectOnlyWritten() const {
        std::set<std::uint32_t> tried{m_first};
        std::set<std::uint32_t> acknowledged;
        for (const Event& event : m_events) {
            if (event.isWrite) {
                tried.insert(event.number);
                if (event.end != 0) {
                    EXPECT_TRUE(acknowledged.insert(event.number).second)
                        << event.number << " was written twice";
                }
            }
        }
        for (const Event& event : m_events) {
            if (!event.isWrite) {
                ASSERT_EQ(tried.count(event.number), 1u) << event.number << " was never written";
            }
        }
    }

    // Nothing is older than what had been read, or written, before it began.
    void expectOneOrder() {
        std::vector<const Event*> ends;
        std::vector<const Event*> begins;
        for (const Event& event : m_events) {
            begins.push_back(&event);
            if (event.end != 0) {
                ends.push_back(&event);
            }
        }
        std::sort(begins.begin(), begins.end(),
                  [](const Event* a, const Event* b) { return a->begin < b->begin; });
        std::sort(ends.begin(), ends.end(),
                  [](const Event* a, const Event* b) { return a->end < b->end; });
        auto ended = ends.begin();
        std::uint32_t newest = m_first;
        for (const Event* event : begins) {
            for (; ended != ends.end() && (*ended)->end < event->begin; ++ended) {
                newest = std::max(newest, (*ended)->number);
            }
            ASSERT_GE(event->number, newest) << (event->isWrite ? "a write" : "a read");
        }
    }

    void expectKept(long number) const {
        std::uint32_t newest = m_first;
        for (const Event& event : m_events) {
            newest = event.end != 0 ? std::max(newest, event.number) : newest;
        }
        EXPECT_GE(number, static_cast<long>(newest));
        EXPECT_GE(number, static_cast<long>(m_first + count(true)));
        EXPECT_LE(number, static_cast<long>(m_first + count(true) + count(false)));
    }

private:
    std::size_t count(bool acknowledged) const {
        return static_cast<std::size_t>(std::count_if(
            m_events.begin(), m_events.end(),
            [&](const Event& event) { return event.isWrite && (event.end != 0) == acknowledged; }));
    }

    const std::uint32_t m_first;  // the number before the first write
    std::vector<Event> m_events;
};

}  // namespace vqtest

#endif  // VQTEST_LINEAR_HISTORY_H
