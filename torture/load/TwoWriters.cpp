// Two processes take turns as fast as they can: each changes a value when the other has, and must see the
// other's last one at once. A stamp that does not tell two changes apart, or that is renewed too late,
// shows here.
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "VQRegLib.h"
#include "load/Load.h"
#include "support/Children.h"
#include "support/WatchedStore.h"

namespace vqtorture {

namespace {

constexpr unsigned kSeconds = 600;

struct Game {
    std::atomic<std::uint64_t> turn;  // even ones are the first player's
    std::atomic<bool> isOver;
};

// The player whose turn it is finds the number of the turn before, and sets his own to that of this one.
int play(Game& game, const std::string& path, std::uint64_t own, std::uint64_t turns) {
    const auto session = vqtest::openSession(path);
    if (!session->RootKey()) {
        game.isOver = true;
        return 1;
    }
    const char* const mine = own == 0 ? "First" : "Second";
    const char* const others = own == 0 ? "Second" : "First";
    for (std::uint64_t turn = own; turn < turns; turn += 2) {
        while (game.turn != turn) {
            if (game.isOver) {
                return 0;
            }
            std::this_thread::yield();
        }
        const long expected = turn == 0 ? -1 : static_cast<long>(turn);
        const long found = vqtest::numberOf(*session, others);
        if (found != expected || vqtest::setNumber(*session, mine, turn + 1) < 0) {
            game.isOver = true;
            throw Violation("turn " + std::to_string(turn) + " begins with " +
                            std::to_string(found));
        }
        ++game.turn;
    }
    return 0;
}

}  // namespace

void twoWriters(Run& run) {
    const std::string path = run.directory() + "/store.cfg";
    Common<Game> game;
    const Stopwatch watch;
    const auto first = spawn([&] { return play(*game, path, 0, run.count()); }, kSeconds);
    const auto second = spawn([&] { return play(*game, path, 1, run.count()); }, kSeconds);
    requireEnd(*first, "the first player");
    requireEnd(*second, "the second player");
    require(game->turn == run.count(), "the game has ended early");
    run.add("turns", static_cast<double>(run.count()));
    run.highest("microseconds_per_turn",
                watch.milliseconds() * 1000 / static_cast<double>(run.count()));
}

}  // namespace vqtorture
