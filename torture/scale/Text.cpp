// Files of hundreds of megabytes: read, and written again with one change.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "scale/Scale.h"
#include "support/WatchedStore.h"

namespace vqtorture {

namespace {

constexpr std::uint64_t kMegabyte = 1000 * 1000;
constexpr int kValuesOfKey = 50;
constexpr char kFirst[] = "[Velquist]\n";
constexpr char kChange[] = "\"A\"=dword:00000001\n";

// As the library writes it, in its order. How many bytes they are.
std::uint64_t writeText(const std::string& path, std::uint64_t bytes) {
    std::ofstream out(path, std::ios::binary);
    out << kFirst;
    std::uint64_t written = sizeof kFirst - 1;
    const std::string filler(60, 'x');
    char line[160];
    for (std::uint64_t key = 0; written < bytes; ++key) {
        int size = std::snprintf(line, sizeof line, "[Velquist/Key%08llu]\n",
                                 static_cast<unsigned long long>(key));
        out.write(line, size);
        written += static_cast<std::uint64_t>(size);
        for (int value = 0; value < kValuesOfKey; ++value) {
            size = std::snprintf(line, sizeof line, "\"Value%03d\"=string:%llu %s\n", value,
                                 static_cast<unsigned long long>(key), filler.c_str());
            out.write(line, size);
            written += static_cast<std::uint64_t>(size);
        }
    }
    out.close();
    require(out.good(), "the text cannot be written");
    return written;
}

// The new text is the old one with the change behind its first line.
void requireSameButForChange(const std::string& path) {
    std::ifstream before(path + ".bak", std::ios::binary);
    std::ifstream after(path, std::ios::binary);
    const auto lineOf = [](std::ifstream& in) {
        std::string line;
        return std::getline(in, line) ? line + "\n" : std::string();
    };
    require(lineOf(before) == kFirst && lineOf(after) == kFirst, "the text begins otherwise");
    require(lineOf(after) == kChange, "the change is not in the text");
    std::uint64_t number = 2;
    for (std::string old = "-"; !old.empty(); ++number) {
        old = lineOf(before);
        require(lineOf(after) == old, "line " + std::to_string(number) + " has changed");
    }
}

struct Costs {
    double load;
    double save;
};

// The least of some times: the first time memory of this size is used costs the machine, not the library.
constexpr int kTimes = 3;

// Per byte.
Costs play(Run& run, std::uint64_t megabytes) {
    const std::string path = freshStore(run, "text" + std::to_string(megabytes));
    const auto bytes = static_cast<double>(writeText(path, megabytes * kMegabyte));
    std::unique_ptr<VQRegLib::CRegLib> session;
    const double before = residentKibibytes();
    double load = secondsOf([&] { session = vqtest::openSession(path); });
    require(session->RootKey() != nullptr, "a large text cannot be read");
    run.highest("resident_bytes_per_byte", (residentKibibytes() - before) * 1024 / bytes);
    double save = secondsOf(
        [&] { requireCode(vqtest::setNumber(*session, "A", 1), VQRegLib::REGLIB_OK, "a set"); });
    requireSameButForChange(path);
    for (std::uint32_t time = 1; time < kTimes; ++time) {
        session.reset();
        load = std::min(load, secondsOf([&] { session = vqtest::openSession(path); }));
        save = std::min(save, secondsOf([&] {
                            requireCode(vqtest::setNumber(*session, "A", time + 1),
                                        VQRegLib::REGLIB_OK, "a set");
                        }));
    }
    run.highest("load_ms", load * 1000);
    run.highest("save_ms", save * 1000);
    return {load / bytes, save / bytes};
}

}  // namespace

void text(Run& run) {
    const Costs tenth = play(run, run.count() / 10);
    const Costs all = play(run, run.count());
    requireGrowth(run, "load_of_a_byte", tenth.load, all.load);
    requireGrowth(run, "save_of_a_byte", tenth.save, all.save);
}

}  // namespace vqtorture
