/// A contender's store at work, in turns that scripts/bench orders line by line, so that all contenders
/// take turns in one run.
///
/// Lines are "WORKLOAD COUNT", answered by nanoseconds for one operation, and "rate WORKLOAD START
/// NANOSECONDS", answered by operations a second.
#ifndef VQREG_BENCH_SERVICE_H
#define VQREG_BENCH_SERVICE_H

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "support/Data.h"
#include "support/FreshProcess.h"
#include "support/Partner.h"
#include "support/System.h"

namespace bench {

inline double median(std::vector<double> times) {
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

// Nanoseconds for one call: the median of parts, few of which are those in which the system let
// another process run.
template <typename Operation>
double timed(long count, Operation operation) {
    constexpr long kParts = 15;
    std::vector<double> times;
    for (long part = 0; part < kParts; ++part) {
        const long calls = count * (part + 1) / kParts - count * part / kParts;
        if (calls == 0) {
            continue;
        }
        const std::int64_t begin = now();
        for (long call = 0; call < calls; ++call) {
            operation();
        }
        times.push_back(static_cast<double>(now() - begin) / static_cast<double>(calls));
    }
    return median(std::move(times));
}

template <typename Store>
class Service {
public:
    Service(std::string program, std::string directory, std::size_t values)
        : m_program(std::move(program)),
          m_directory(std::move(directory)),
          m_data(values),
          m_numbers(m_data, Type::eNumber),
          m_texts(m_data, Type::eText),
          m_bytes(m_data, Type::eBytes) {}

    void run() {
        if constexpr (requires(Store & store) { store.set(0, 0); }) {
            m_partner = std::make_unique<Partner>([this] {
                const auto store = std::make_shared<Store>(m_data, m_directory);
                store->openKeys();
                return
                    [store](std::size_t value, std::uint32_t number) { store->set(value, number); };
            });
        }
        m_store = std::make_unique<Store>(m_data, m_directory);
        m_store->openKeys();
        // What nobody has set before, in no process.
        m_number = static_cast<std::uint32_t>(now() >> 8);
        for (std::string word; std::cin >> word;) {
            answer(word);
        }
    }

private:
    void answer(const std::string& word) {
        std::string workload = word;
        double result = -1;
        if (word == "rate") {
            std::int64_t start = 0;
            std::int64_t length = 0;
            require(static_cast<bool>(std::cin >> workload >> start >> length), "a bad order");
            result = rate(workload, start, start + length);
        } else {
            long count = 0;
            require(static_cast<bool>(std::cin >> count), "a bad order");
            result = once(workload, count);
        }
        require(result >= 0, "an order that this contender does not know");
        std::printf("%.3f\n", result);
        std::fflush(stdout);
    }

    double once(const std::string& workload, long count) {
        Store& store = *m_store;
        if constexpr (requires { store.query(0); }) {
            if (workload == "query") {
                return timed(count, [&] { keep(store.query(m_numbers.next())); });
            }
        }
        if constexpr (requires { store.copy(0, nullptr, 0); }) {
            const auto copy = [&](Draw& values) {
                char buffer[128];
                keep(store.copy(values.next(), buffer, sizeof buffer));
                keep(buffer);
            };
            if (workload == "text") {
                return timed(count, [&] { copy(m_texts); });
            }
            if (workload == "bytes") {
                return timed(count, [&] { copy(m_bytes); });
            }
        }
        if constexpr (requires { store.enumerate(0); }) {
            if (workload == "enumerate") {
                return timed(count, [&] { keep(store.enumerate(Data::keyOf(m_numbers.next()))); });
            }
        }
        return change(store, workload, count);
    }

    double change(Store& store, const std::string& workload, long count) {
        if constexpr (requires { store.set(0, 0); }) {
            if (workload == "set") {
                return timed(count, [&] { store.set(m_numbers.next(), ++m_number); });
            }
            if (workload == "again") {
                // As long as nobody has set anything else.
                return timed(count, [&] {
                    const std::size_t value = m_numbers.next();
                    store.set(value, Data::numberOf(value));
                });
            }
            if constexpr (requires { store.query(0); }) {
                if (workload == "reread") {
                    return reread(store, count);
                }
            }
        }
        if (workload == "load") {
            return load(count, &FirstAnswer::whole);
        }
        if (workload == "inside") {
            return load(count, &FirstAnswer::inside);
        }
        if constexpr (requires { store.special(workload, count); }) {
            return store.special(workload, count);
        }
        return -1;
    }

    // The first query after another process's set, which it must see.
    double reread(Store& store, long count) {
        std::vector<double> times;
        for (long turn = 0; turn < count; ++turn) {
            const std::size_t value = m_numbers.next();
            m_partner->set(value, ++m_number);
            const std::int64_t begin = now();
            const std::uint32_t seen = store.query(value);
            times.push_back(static_cast<double>(now() - begin));
            require(seen == m_number, "a change of another process was not seen");
        }
        return median(std::move(times));
    }

    // From the beginning of fresh processes to their first answers, or only what they spend themselves.
    double load(long count, double FirstAnswer::*part) {
        std::vector<double> times;
        for (long turn = 0; turn < count; ++turn) {
            times.push_back(firstAnswer(m_program, m_directory, m_data.values()).*part);
        }
        return median(std::move(times));
    }

    // Operations a second between two moments, beside whatever others do at the same time.
    double rate(const std::string& workload, std::int64_t start, std::int64_t end) {
        constexpr std::int64_t kLook = 200'000;  // nanoseconds between two looks at the clock
        while (now() < start) {
        }
        long batch = 1;
        long done = 0;
        const std::int64_t begin = now();
        std::int64_t at = begin;
        do {
            const double each = once(workload, batch);
            done += batch;
            at = now();
            batch = each * static_cast<double>(batch) < kLook ? batch * 2 : batch;
        } while (at < end);
        return static_cast<double>(done) * 1e9 / static_cast<double>(at - begin);
    }

    // The compiler must not think that nobody needs a result.
    template <typename Result>
    static void keep(const Result& result) {
        asm volatile("" : : "g"(&result) : "memory");
    }

    std::string m_program;
    std::string m_directory;
    Data m_data;
    Draw m_numbers;
    Draw m_texts;
    Draw m_bytes;
    std::uint32_t m_number = 0;
    std::unique_ptr<Partner> m_partner;
    std::unique_ptr<Store> m_store;
};

}  // namespace bench

#endif  // VQREG_BENCH_SERVICE_H
