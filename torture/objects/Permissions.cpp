// Processes of several users, each with an umask of its own, on one store: whoever makes the objects makes
// them for everybody, and so is the file.
#include <sys/stat.h>

#include <array>
#include <deque>
#include <memory>
#include <string>

#include "objects/Objects.h"
#include "objects/Users.h"
#include "support/Children.h"
#include "support/Ledger.h"

namespace vqtorture {

namespace {

constexpr std::array<mode_t, 4> kMasks = {0000, 0022, 0027, 0077};

mode_t modeOf(const std::string& path) {
    struct stat status {};
    require(::stat(path.c_str(), &status) == 0, path + " is missing");
    return status.st_mode & 07777;
}

std::string inOctal(mode_t mode) {
    char digits[8];
    std::snprintf(digits, sizeof digits, "%04o", static_cast<unsigned>(mode));
    return digits;
}

void requireForEverybody(const std::string& path) {
    const mode_t mode = modeOf(path);
    require(mode == 0666, path + " has the mode " + inOctal(mode));
}

// Opens the store again and again, as programs of root's do, so that a file of a narrow umask does not
// stay its maker's.
int openForOthers(const std::string& path, const Ledger& ledger) {
    return vqtest::waitUntil([&] {
        (void)vqtest::openSession(path);
        return ledger.isOver.load();
    })
               ? 0
               : 1;
}

}  // namespace

void requireUsersShare(Run& run, unsigned creator, mode_t mask) {
    const std::string path = newPlace(run);
    Common<Ledger> ledger;
    const auto maker = spawnUser([&] { return countUpAsUser(path, *ledger, mask); }, creator);
    requireEnd(*maker, "who makes the store");
    requireForEverybody(lockOf(path));
    requireForEverybody(blockOf(path));
    const auto root =
        spawnUser([&] { return isNarrow(mask) ? openForOthers(path, *ledger) : 0; }, 0);
    std::deque<std::unique_ptr<ForkedChild>> users;
    for (const unsigned user : kUsers) {
        users.push_back(spawnUser([&] { return countUpAsUser(path, *ledger, mask); }, user));
    }
    for (const auto& user : users) {
        requireEnd(*user, "a user");
    }
    ledger->isOver = true;
    requireEnd(*root, "who opens the store");
    requireAllCounted(*ledger, path, !isNarrow(mask));
    require(isNarrow(mask) || ledger->refused == 0, "a change was refused");
    requireForEverybody(path);
    run.add("stores");
    run.add("changes", ledger->acknowledged);
    run.add("refused_for_a_narrow_umask", ledger->refused);
    run.highest("longest_wait_ms", ledger->longestMilliseconds);
    removePlace(path);
}

void permissions(Run& run) {
    needOtherUsers();
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        for (const mode_t mask : kMasks) {
            for (const unsigned creator : kUsers) {
                try {
                    requireUsersShare(run, creator, mask);
                } catch (const Violation& violation) {
                    throw Violation("umask " + inOctal(mask) + ", made by user " +
                                    std::to_string(creator) + ": " + violation.what());
                }
            }
        }
    }
}

}  // namespace vqtorture
