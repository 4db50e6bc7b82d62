// A process changes a value, and goes on when all watches have told of the change, so that nothing comes behind
// one that is not told which would bring it to light. Another file of the directory comes and goes all the
// time, as they do in /etc: changes come while the watches look what that was.
#include <poll.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "VQRegLib.h"
#include "load/Load.h"
#include "support/Children.h"
#include "support/Sessions.h"
#include "support/Wait.h"
#include "vqreg.h"

namespace vqtorture {

namespace {

constexpr unsigned kSeconds = 100;
constexpr char kName[] = "Number";
constexpr int kWatches = 2;

struct World {
    std::array<std::atomic<std::uint32_t>, kWatches> told;
    std::atomic<int> ready;  // watches
    std::atomic<bool> isOver;
};

void note(const vqreg_change& change, std::atomic<std::uint32_t>& told) {
    std::uint32_t number = 0;
    if (change.name && change.after.size == sizeof number) {
        std::memcpy(&number, change.after.data, sizeof number);
        told = number;
    }
}

// As an event loop: asks for changes when the descriptor says so, and only then.
int watch(World& world, std::atomic<std::uint32_t>& told, const std::string& path) {
    const std::unique_ptr<vqreg_store, decltype(&vqreg_close)> store(
        vqreg_open(path.c_str(), nullptr, nullptr), vqreg_close);
    const std::unique_ptr<vqreg_watch, decltype(&vqreg_watch_close)> news(
        vqreg_watch_open(store.get(), "", nullptr), vqreg_watch_close);
    require(news != nullptr, "no watch");
    ++world.ready;
    while (!world.isOver) {
        pollfd waiting{vqreg_watch_fd(news.get()), POLLIN, 0};
        if (::poll(&waiting, 1, 100) == 1) {
            const vqreg_change* change = nullptr;
            int result = 0;
            while ((result = vqreg_watch_next(news.get(), &change)) == 1) {
                note(*change, told);
            }
            require(result == VQREG_OK, "a watch has failed with " + std::to_string(result));
        }
    }
    return 0;
}

int write(World& world, const std::string& path, std::uint32_t count) {
    const auto session = vqtest::openSession(path);
    for (std::uint32_t i = 1; i <= count; ++i) {
        require(vqtest::setNumber(*session, kName, i) >= 0, "a change fails");
        for (const auto& told : world.told) {
            require(vqtest::waitUntil([&] { return told == i; }),
                    "change " + std::to_string(i) + " is not told");
        }
    }
    return 0;
}

int disturb(const World& world, const std::string& file) {
    while (!world.isOver) {
        require(static_cast<bool>(std::ofstream(file)), "no other file can be made");
        std::filesystem::remove(file);
    }
    return 0;
}

}  // namespace

void watched(Run& run) {
    const std::string path = run.directory() + "/store.cfg";
    Common<World> world;
    std::vector<std::unique_ptr<ForkedChild>> watches;
    for (auto& told : world->told) {
        watches.push_back(spawn([&] { return watch(*world, told, path); }, kSeconds));
    }
    require(vqtest::waitUntil([&] { return world->ready == kWatches; }), "nobody watches");
    const auto neighbour = spawn([&] { return disturb(*world, path + ".neighbour"); }, kSeconds);
    const Stopwatch stopwatch;
    const auto writer = spawn(
        [&] { return write(*world, path, static_cast<std::uint32_t>(run.count())); }, kSeconds);
    const int status = writer->wait();
    world->isOver = true;
    for (const auto& one : watches) {
        requireEnd(*one, "a watch");
    }
    requireEnd(*neighbour, "the neighbour");
    require(status == 0, "the writer ended with " + std::to_string(status));
    run.add("changes", static_cast<double>(run.count()));
    run.highest("microseconds_per_change",
                stopwatch.milliseconds() * 1000 / static_cast<double>(run.count()));
}

}  // namespace vqtorture
