// Another user does to the objects of a store in use what he is allowed to: he cuts them, fills them,
// makes giants of them, writes into the shared memory, and, where he is their owner, removes them and puts
// something else in their place.
#include <sys/file.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <deque>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <thread>

#include "objects/Objects.h"
#include "objects/Plants.h"
#include "support/Children.h"
#include "support/Ledger.h"
#include "support/Wait.h"

namespace vqtorture {

namespace {

constexpr unsigned kSeconds = 60;
constexpr std::uint64_t kAttacksInARow = 20;
constexpr auto kTogetherAgain = std::chrono::seconds(10);

// The last four are for owners. What is removed between changes costs nothing, and the lock costs nothing
// in the middle of one either. Lock and block together may cost that change there, and what others change
// while its process is held up: that is counted.
enum eAttack {
    eCut,
    eFill,
    eMakeGiant,
    eScribble,
    eHold,
    eRemoveBetween,
    eReplaceBetween,
    eRemoveLock,
    eRemove,
    eAttacks
};

bool isOwners(eAttack attack) {
    return attack >= eRemoveBetween;
}
bool isBetween(eAttack attack) {
    return attack == eRemoveBetween || attack == eReplaceBetween;
}

bool holdForAMoment(const std::string& object) {
    const int fd = vqtest::openObject(object);
    const bool isHeld = ::flock(fd, LOCK_EX) == 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    ::close(fd);
    return isHeld;
}

// It may be gone just now, or be something else: then the attack comes to nothing.
void attackOnce(eAttack attack, const std::string& object, unsigned random) {
    std::error_code ignored;
    switch (attack) {
        case eCut:
            vqtest::cut(object);
            break;
        case eFill:
            vqtest::fillWithGarbage(object);
            break;
        case eMakeGiant:
            vqtest::makeGiant(object);
            break;
        case eScribble:
            vqtest::scribbleStamps(object);
            break;
        case eHold:
            holdForAMoment(object);
            break;
        case eReplaceBetween:
            std::filesystem::remove_all(object, ignored);
            kPlants[random % kPlants.size()].lay(object, "/nowhere");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            [[fallthrough]];
        default:
            std::filesystem::remove_all(object, ignored);
    }
}

// How the attacker has the others stand still.
struct Pause {
    std::atomic<bool> isAsked;
    std::atomic<unsigned> standing;
};

constexpr unsigned kWorkers = 3;

struct Scene {
    std::string path;
    unsigned user;  // whose the objects are
    eAttack attack;
    Pause* pause;
};

void standStill(Pause& pause) {
    if (pause.isAsked) {
        ++pause.standing;
        vqtest::waitUntil([&] { return !pause.isAsked; });
        --pause.standing;
    }
}

// Counts up and reads for as long as the attack goes on. What it reads never becomes older, unless it was
// a change of its own that was refused: that stays in its memory until it reads the file.
int work(const Scene& scene, Ledger& ledger) {
    const auto session = vqtest::openSession(scene.path);
    if (!session->RootKey()) {
        return 1;
    }
    ++ledger.ready;
    long last = 0;
    while (!ledger.isOver && ledger.faults == 0) {
        standStill(*scene.pause);
        const bool isCounted = countUp(*session, ledger);
        const long number = vqtest::numberOf(*session, kCounter);
        if (isCounted && number < last && scene.attack != eRemove) {
            ledger.noteFault("a process reads what it has seen pass", number, last);
        }
        last = isCounted ? number : 0;
    }
    // Now that it is over, all must come together, and know what anybody was told.
    const Stopwatch watch;
    const bool isTogether = vqtest::waitUntil(
        [&] {
            const bool isNewest = countOf(*session) >= static_cast<long>(ledger.newest);
            return (isNewest || scene.attack == eRemove) && countUp(*session, ledger);
        },
        kTogetherAgain);
    ledger.noteWait(watch);
    return isTogether ? 0 : 2;
}

// As the user whose the objects are, or as one who only may write them.
int attack(const Scene& scene, std::uint64_t seed, std::uint64_t times) {
    std::mt19937_64 random(seed);
    for (std::uint64_t i = 0; i < times; ++i) {
        const bool isLock = random() % 2 == 0 || scene.attack == eRemoveLock;
        const std::string object = isLock ? lockOf(scene.path) : blockOf(scene.path);
        scene.pause->isAsked = isBetween(scene.attack);
        if (isBetween(scene.attack) &&
            !vqtest::waitUntil([&] { return scene.pause->standing == kWorkers; })) {
            return 1;
        }
        attackOnce(scene.attack, object, static_cast<unsigned>(random()));
        scene.pause->isAsked = false;
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
    }
    return 0;
}

// The objects and the file are made by the user of the scene.
void makeStoreAs(unsigned user, const std::string& path) {
    const auto maker = spawn(
        [&] {
            const auto session = vqtest::openSession(path);
            return session->RootKey() && vqtest::setNumber(*session, kCounter, 0) >= 0 ? 0 : 1;
        },
        kSeconds, user);
    requireEnd(*maker, "who makes a store");
}

void play(Run& run, const Scene& scene, std::uint64_t times) {
    makeStoreAs(scene.user, scene.path);
    Common<Ledger> ledger;
    ledger->mayRepeat = scene.attack == eRemove;
    std::deque<std::unique_ptr<ForkedChild>> workers;
    // What is removed is made again by one of them, so then all of them are the attacker's user.
    for (const unsigned user : std::array<unsigned, kWorkers>{0, kOwner, 0}) {
        const unsigned its = isOwners(scene.attack) ? scene.user : user;
        workers.push_back(spawn([&] { return work(scene, *ledger); }, kSeconds, its));
    }
    require(vqtest::waitUntil([&] { return ledger->ready == kWorkers; }),
            "nobody can open the store");
    const std::uint64_t seed = run.random()();
    const auto attacker = spawn([&] { return attack(scene, seed, times); }, kSeconds, kOther);
    requireEnd(*attacker, "the attacker");
    ledger->isOver = true;
    for (const auto& worker : workers) {
        requireEnd(*worker, "a worker");
    }
    if (scene.attack == eRemove) {
        const long lost = static_cast<long>(ledger->acknowledged) - countInFile(scene.path);
        run.add("lost_with_both_removed_in_a_change", static_cast<double>(std::max(0L, lost)));
    } else {
        requireAllCounted(*ledger, scene.path, ledger->refused == 0);
    }
    require(ledger->acknowledged > kWorkers, "nothing goes on");
    run.add("attacks", static_cast<double>(times));
    run.add("changes", ledger->acknowledged);
    run.add("refused", ledger->refused);
    run.highest("longest_wait_ms", ledger->longestMilliseconds);
    removePlace(scene.path);
}

}  // namespace

void attacked(Run& run) {
    needOtherUsers();
    for (std::uint64_t done = 0; done < run.count(); done += kAttacksInARow) {
        const auto kind = static_cast<eAttack>(done / kAttacksInARow % eAttacks);
        // Only an owner can remove something from /dev/shm.
        const unsigned user = isOwners(kind) || run.below(2) == 0 ? kOther : 0;
        Common<Pause> pause;
        const Scene scene{newPlace(run), user, kind, &*pause};
        try {
            play(run, scene, std::min(kAttacksInARow, run.count() - done));
        } catch (const Violation& violation) {
            throw Violation("attack " + std::to_string(kind) + ": " + violation.what());
        }
    }
}

}  // namespace vqtorture
