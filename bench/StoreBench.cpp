// What the operations of a store cost. Ratios within one run are what counts: machines differ.
#include <VQRegLib.h>
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

constexpr int kValuesPerKey = 100;

std::string valueName(int number) {
    return "Value" + std::to_string(number);
}

// A directory of its own with a file of so many values, a hundred to a key.
class BenchStore {
public:
    explicit BenchStore(int values) {
        std::string pattern = std::filesystem::temp_directory_path() / "vqreg-bench-XXXXXX";
        if (!mkdtemp(pattern.data())) {
            throw std::runtime_error("no temporary directory");
        }
        m_directory = pattern;
        std::ofstream out(path());
        out << "[Velquist]\n";
        for (int i = 0; i < values; ++i) {
            if (i % kValuesPerKey == 0) {
                out << "[Velquist/Key" << i / kValuesPerKey << "]\n";
            }
            out << '"' << valueName(i) << "\"=dword:00000001\n";
        }
    }
    ~BenchStore() {
        std::error_code error;
        std::filesystem::remove_all(m_directory, error);
        std::string encoded;
        for (const char c : m_directory) {
            encoded += c == '/' ? std::string("%2F") : std::string(1, c);
        }
        for (const char* kind : {"CPLock.", "CPBlock."}) {
            std::filesystem::remove(std::string("/dev/shm/") + kind + encoded + "%2Fbench.cfg",
                                    error);
        }
    }
    BenchStore(const BenchStore&) = delete;
    BenchStore& operator=(const BenchStore&) = delete;

    std::string path() const { return m_directory + "/bench.cfg"; }
    // Another spelling makes another store in this process, on the same file.
    std::string otherSpelling() const { return m_directory + "/./bench.cfg"; }

private:
    std::string m_directory;
};

struct Session {
    explicit Session(const std::string& path)
        : session(path.c_str(), nullptr, CRegLib::eLocationDefault, nullptr),
          key(*session.RootKey()) {}
    CRegLib session;
    CRegKey& key;
};

void check(benchmark::State& state, int result) {
    if (result < 0) {
        state.SkipWithError("an operation failed");
    }
}

void queryHit(benchmark::State& state, CRegLib::eDataType type) {
    const BenchStore store(1000);
    Session s(store.path());
    const unsigned char bytes[16] = {1, 2, 3};
    check(state, s.session.VQRegSetValue(s.key, "Dword", 1ul));
    check(state, s.session.VQRegSetValue(s.key, "String", "sixteen letters."));
    check(state, s.session.VQRegSetValue(s.key, "Binary", bytes, sizeof bytes));
    const char* const name = type == CRegLib::eDword    ? "Dword"
                             : type == CRegLib::eString ? "String"
                                                        : "Binary";
    for (auto _ : state) {
        unsigned char buffer[64];
        unsigned long size = sizeof buffer;
        CRegLib::eDataType found = CRegLib::eNone;
        check(state, s.session.VQRegQueryValue(s.key, name, found, buffer, &size));
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK_CAPTURE(queryHit, dword, CRegLib::eDword);
BENCHMARK_CAPTURE(queryHit, string, CRegLib::eString);
BENCHMARK_CAPTURE(queryHit, binary, CRegLib::eBinary);

void setUnchanged(benchmark::State& state) {
    const BenchStore store(1000);
    Session s(store.path());
    check(state, s.session.VQRegSetValue(s.key, "Dword", 1ul));
    for (auto _ : state) {
        check(state, s.session.VQRegSetValue(s.key, "Dword", 1ul));
    }
}
BENCHMARK(setUnchanged);

// A changed value writes the whole file: this is the price of an export.
void setChanged(benchmark::State& state) {
    const BenchStore store(static_cast<int>(state.range(0)));
    Session s(store.path());
    unsigned long number = 0;
    for (auto _ : state) {
        check(state, s.session.VQRegSetValue(s.key, "Dword", ++number));
    }
}
BENCHMARK(setChanged)
    ->Name("exportByChange")
    ->Arg(1)
    ->Arg(100)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMicrosecond);

// So many changed values: one write each, or one for all of them.
void setMany(benchmark::State& state, bool inUpdate) {
    const BenchStore store(1000);
    Session s(store.path());
    const int count = static_cast<int>(state.range(0));
    unsigned long number = 1;
    for (auto _ : state) {
        ++number;
        if (inUpdate) {
            check(state, s.session.VQRegBeginUpdate());
        }
        for (int i = 0; i < count; ++i) {
            check(state, s.session.VQRegSetValue(s.key, valueName(i).c_str(), number));
        }
        if (inUpdate) {
            check(state, s.session.VQRegEndUpdate());
        }
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK_CAPTURE(setMany, oneByOne, false)->Arg(100)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(setMany, inUpdate, true)->Arg(100)->Arg(10'000)->Unit(benchmark::kMicrosecond);

// A query after a foreign change reads the whole file again.
void importChange(benchmark::State& state) {
    const BenchStore store(static_cast<int>(state.range(0)));
    Session reader(store.path());
    Session writer(store.otherSpelling());
    unsigned long number = 0;
    for (auto _ : state) {
        state.PauseTiming();
        check(state, writer.session.VQRegSetValue(writer.key, "Dword", ++number));
        state.ResumeTiming();
        CRegLib::eDataType type = CRegLib::eNone;
        check(state, reader.session.VQRegQueryValueType(reader.key, "Dword", type));
    }
}
BENCHMARK(importChange)
    ->Name("importForeignChange")
    ->Arg(100)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMicrosecond);

void openSession(benchmark::State& state) {
    const BenchStore store(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        const Session s(store.path());
        benchmark::DoNotOptimize(&s.key);
    }
}
BENCHMARK(openSession)->Arg(0)->Arg(100)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMicrosecond);

void joinSession(benchmark::State& state) {
    const BenchStore store(100);
    const Session first(store.path());
    for (auto _ : state) {
        const Session s(store.path());
        benchmark::DoNotOptimize(&s.key);
    }
}
BENCHMARK(joinSession);

void enumerateValues(benchmark::State& state) {
    const BenchStore store(1);
    Session s(store.path());
    for (int i = 0; i < 1000; ++i) {
        check(state, s.session.VQRegSetValue(s.key, valueName(i).c_str(), 1ul));
    }
    std::string name;
    CRegLib::eDataType type = CRegLib::eNone;
    for (auto _ : state) {
        for (int i = 0; s.session.VQRegEnumValues(s.key, i, name, type) >= 0; ++i) {
        }
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(enumerateValues)->Unit(benchmark::kMicrosecond);

}  // namespace
