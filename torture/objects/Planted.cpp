// Another user has put something under the name of a lock, a block or a semaphore before anybody uses it.
// Whoever then opens the store has it, and excludes all others, or is refused, and the trace log tells what
// is in the way and whose it is. Nobody waits, and nothing of anybody else's is touched.
#include <sys/file.h>
#include <sys/types.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "objects/Objects.h"
#include "objects/Plants.h"
#include "support/Children.h"
#include "support/Ledger.h"
#include "support/TraceLog.h"
#include "support/Wait.h"

namespace vqtorture {

namespace {

using vqtest::TraceLog;

constexpr int kChanges = 10;
constexpr unsigned kSeconds = 20;
constexpr int kRefused = 3;
constexpr char kSecret[] = "nobody else's";
constexpr double kMostReadMilliseconds = 5000;

// A file that nobody but root may touch.
class Victim {
public:
    explicit Victim(const std::string& store) : m_path(store + ".victim") {
        std::ofstream(m_path) << kSecret;
        std::filesystem::permissions(m_path, std::filesystem::perms{0600});
    }
    const std::string& path() const { return m_path; }
    void requireUntouched() const {
        require(vqtest::readFile(m_path) == kSecret, "a link was followed, and its file written");
        require(std::filesystem::status(m_path).permissions() == std::filesystem::perms{0600},
                "a link was followed, and its file opened to others");
        require(!std::filesystem::exists(m_path + ".made"), "a link to nothing has made a file");
    }

private:
    const std::string m_path;
};

// A line of that process.
void requireMessage(const std::string& object, pid_t process) {
    const std::string user = "of user " + std::to_string(kOther);
    const std::vector<std::string> lines = linesWith("\"" + object + "\"", user);
    require(std::any_of(lines.begin(), lines.end(),
                        [process](const std::string& line) {
                            const auto parts = vqtest::parseTraceLine(line);
                            return parts && parts->pid == process;
                        }),
            "no line of process " + std::to_string(process) + " tells that \"" + object + "\" is " +
                user);
}

// Opens the store and changes it a few times; kRefused where it cannot be had, or not be changed.
int use(const std::string& path, Ledger& ledger) {
    const Stopwatch watch;
    const auto session = vqtest::openSession(path);
    ledger.noteWait(watch);
    if (!session->RootKey()) {
        return kRefused;
    }
    for (int i = 0; i < kChanges; ++i) {
        if (!countUp(*session, ledger)) {
            return kRefused;
        }
        readNewest(*session, ledger);
    }
    return 0;
}

void judge(const Plant& plant, bool isRefused, bool isRoot) {
    const bool isExpected =
        plant.answer == Answer::eRefused || (plant.answer == Answer::eUsedByRoot && !isRoot);
    const std::string who = isRoot ? "root" : "another user";
    require(isRefused == isExpected, who + (isRefused ? " is refused it" : " has used it"));
}

// Two users at once. To how many it is refused, who say so.
int useTogether(const std::string& path, const Plant& plant, const std::string& object,
                Ledger& ledger) {
    const auto root = spawn([&] { return use(path, ledger); }, kSeconds);
    const auto owner = spawn([&] { return use(path, ledger); }, kSeconds, kOwner);
    int refusals = 0;
    for (ForkedChild* const one : {root.get(), owner.get()}) {
        const int status = one->wait();
        require(status == 0 || status == kRefused,
                "an opening ended with " + std::to_string(status));
        judge(plant, status == kRefused, one == root.get());
        if (status == kRefused) {
            requireMessage(object, one->pid());
            ++refusals;
        }
    }
    return refusals;
}

void plantStoreObject(Run& run, const Plant& plant, std::string (*objectOf)(const std::string&)) {
    const std::string path = newPlace(run);
    const std::string object = objectOf(path);
    const Victim victim(path);
    makeCounter(path);
    removeObjects(path);
    layPlant(plant, object, victim.path());
    Common<Ledger> ledger;
    run.add("refused", useTogether(path, plant, object, *ledger));
    victim.requireUntouched();
    removeObjects(path);
    requireAllCounted(*ledger, path, ledger->refused == 0);
    const auto after = spawn([&] { return use(path, *ledger); }, kSeconds);
    requireEnd(*after, "an opening with the plant gone");
    run.add("plants");
    run.highest("longest_wait_ms", ledger->longestMilliseconds);
    removePlace(path);
}

// Registers a handler when the plant has been laid, and is told of a change if the log says nothing else.
int registerHandler(const std::string& path, const std::atomic<bool>& isPlanted, Ledger& ledger) {
    const auto session = vqtest::openSession(path);
    if (!session->RootKey() || !vqtest::waitUntil([&] { return isPlanted.load(); })) {
        return 1;
    }
    vqtest::Handler handler;
    const Stopwatch watch;
    handler.watch(session);
    ledger.noteWait(watch);
    const bool isSet = countUp(*session, ledger);
    if (!linesWith(vqtest::semaphoreName(), "semaphore failed").empty()) {
        return isSet ? kRefused : 2;
    }
    if (!vqtest::waitWatchers(1)) {
        return 4;
    }
    vqtest::moveFileTime(path);
    session->SendRegistryChangeNotification();
    return isSet && handler.waitCalls(1) ? 0 : 5;
}

void plantSemaphore(Run& run, const Plant& plant) {
    const std::string path = newPlace(run);
    const Victim victim(path);
    makeCounter(path);
    Common<Ledger> ledger;
    Common<std::atomic<bool>> isPlanted;
    const auto registrant =
        spawn([&] { return registerHandler(path, *isPlanted, *ledger); }, kSeconds);
    const std::string object = vqtest::semaphoreFile(registrant->pid());
    layPlant(plant, object, victim.path());
    *isPlanted = true;
    const int status = registrant->wait();
    require(status == 0 || status == kRefused,
            "a registration ended with " + std::to_string(status));
    require(status == kRefused || plant.answer != Answer::eRefused, "it is used as a semaphore");
    if (status == kRefused) {
        requireMessage(vqtest::semaphoreName(registrant->pid()), registrant->pid());
    }
    victim.requireUntouched();
    std::filesystem::remove_all(object);
    run.add("plants");
    run.add("refused", status == kRefused ? 1 : 0);
    run.highest("longest_wait_ms", ledger->longestMilliseconds);
    removePlace(path);
}

// Holds a lock as the other user, until it is killed.
std::unique_ptr<ForkedChild> hold(const std::string& object, Common<std::atomic<int>>& isHeld,
                                  bool isMaking) {
    return spawn(
        [&isHeld, object, isMaking] {
            const int fd = vqtest::openObject(object);
            struct flock lock {};
            lock.l_type = F_WRLCK;
            lock.l_whence = SEEK_SET;
            lock.l_len = 1;
            const bool isDone = isMaking ? ::fcntl(fd, F_OFD_SETLK, &lock) == 0
                                         : ::flock(fd, LOCK_EX | LOCK_NB) == 0;
            *isHeld = isDone ? 1 : -1;
            for (;;) {
                ::pause();
            }
            return 0;
        },
        kSeconds, kOther);
}

void requireHeld(Common<std::atomic<int>>& isHeld) {
    require(vqtest::waitUntil([&] { return *isHeld != 0; }) && *isHeld == 1,
            "the lock is not held");
}

// Who reads does not wait, who changes something does, until the holder goes.
void holdLock(Run& run) {
    const std::string path = newPlace(run);
    makeCounter(path);
    Common<Ledger> ledger;
    Common<std::atomic<int>> isHeld;
    const auto holder = hold(lockOf(path), isHeld, false);
    requireHeld(isHeld);
    const auto writer = spawn([&] { return use(path, *ledger); }, kSeconds);
    const Stopwatch watch;
    for (int i = 0; i < kChanges; ++i) {
        require(countInFile(path) == 0, "a reader sees what is not there");
    }
    run.highest("longest_read_beside_held_lock_ms", watch.milliseconds() / kChanges);
    require(watch.milliseconds() < kMostReadMilliseconds, "readers wait for a held lock");
    require(ledger->acknowledged == 0, "a held lock keeps nobody out");
    holder->kill();
    requireEnd(*writer, "who waits for a held lock");
    requireAllCounted(*ledger, path, true);
    removePlace(path);
}

// Who would make the block gives up, and the log tells why.
void holdBlock(Run& run) {
    const std::string path = newPlace(run);
    makeCounter(path);
    removeObjects(path);
    layPlant(kPlants[5], blockOf(path), "");
    Common<Ledger> ledger;
    Common<std::atomic<int>> isHeld;
    const auto holder = hold(blockOf(path), isHeld, true);
    requireHeld(isHeld);
    const auto opener = spawn([&] { return use(path, *ledger); }, kSeconds);
    require(opener->wait() == kRefused, "a block that cannot be made is had");
    run.highest("longest_wait_for_a_held_block_ms", ledger->longestMilliseconds);
    requireMessage(blockOf(path), opener->pid());
    holder->kill();
    const auto next = spawn([&] { return use(path, *ledger); }, kSeconds);
    requireEnd(*next, "who opens a block that is no longer held");
    removePlace(path);
}

}  // namespace

void planted(Run& run) {
    needOtherUsers();
    const TraceLog log(1);
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        for (const Plant& plant : kPlants) {
            try {
                plantStoreObject(run, plant, lockOf);
                plantStoreObject(run, plant, blockOf);
                plantSemaphore(run, plant);
            } catch (const Violation& violation) {
                throw Violation(std::string(plant.name) + ": " + violation.what());
            }
        }
        holdLock(run);
        holdBlock(run);
    }
}

}  // namespace vqtorture
