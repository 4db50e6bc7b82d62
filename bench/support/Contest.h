/// The main program of a contender: a store, given as a class, is made, opened and put to work.
///
///   PROGRAM make DIRECTORY VALUES     makes the store
///   PROGRAM first DIRECTORY VALUES    opens it, makes one query (FreshProcess.h)
///   PROGRAM memory DIRECTORY VALUES   the same; prints its own and its resident memory
///   PROGRAM serve DIRECTORY VALUES    opens it and obeys lines of standard input (Service.h)
///
/// A class has what it can do of
///
///   static void make(const Data&, const std::string& directory)
///   Store(const Data&, const std::string& directory)     opens the store
///   void openKeys()                                      handles of all keys, before other work
///   std::uint32_t first()                                opens one key and queries one value
///   std::uint32_t query(std::size_t value)               a number
///   std::size_t copy(std::size_t value, void* buffer, std::size_t room)    any type; the size
///   void set(std::size_t value, std::uint32_t number)
///   std::size_t enumerate(std::size_t key)               names and types of its values; how many
///   double special(const std::string& workload, long count)    anything else; below 0 when unknown
#ifndef VQREG_BENCH_CONTEST_H
#define VQREG_BENCH_CONTEST_H

#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/ConfigText.h"
#include "support/Data.h"
#include "support/Service.h"
#include "support/System.h"

namespace bench {

// In a process that has done nothing else yet: when it had the answer, and what it has spent on that.
template <typename Store>
void first(const Data& data, const std::string& directory) {
    if constexpr (requires(Store & store) { store.first(); }) {
        const std::int64_t begin = now();
        Store store(data, directory);
        const std::uint32_t number = store.first();
        const std::int64_t end = now();
        std::printf("%lld %lld %u\n", static_cast<long long>(end),
                    static_cast<long long>(end - begin), number);
    }
}

template <typename Store>
void memory(const Data& data, const std::string& directory) {
    if constexpr (requires(Store & store) { store.first(); }) {
        const Memory before = memoryNow();
        Store store(data, directory);
        const std::uint32_t number = store.first();
        const Memory after = memoryNow();
        std::printf("%.0f %.0f %u\n", after.own - before.own, after.resident - before.resident,
                    number);
    }
}

template <typename Store>
int contend(int count, char** arguments) {
    try {
        require(count == 4, "three arguments are needed");
        const std::string what = arguments[1];
        const std::string directory = arguments[2];
        const std::size_t values = std::strtoul(arguments[3], nullptr, 10);
        if (what == "make") {
            Store::make(Data(values), directory);
        } else if (what == "first") {
            first<Store>(Data(values), directory);
        } else if (what == "memory") {
            memory<Store>(Data(values), directory);
        } else {
            require(what == "serve", "make, first, memory or serve");
            Service<Store>(arguments[0], directory, values).run();
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", arguments[0], error.what());
        return 1;
    }
    return 0;
}

}  // namespace bench

#endif  // VQREG_BENCH_CONTEST_H
