// The kernel's rules for sticky directories (fs.protected_regular) and for hard links to other users' files
// (fs.protected_hardlinks), in each of their states. They are the machine's, not this check's: each state
// lasts for a moment, and a process of its own puts back what was there, also when this one is killed.
#include <signal.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "objects/Objects.h"
#include "objects/Users.h"
#include "support/Children.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

namespace fs = std::filesystem;

namespace vqtorture {

namespace {

constexpr char kRegular[] = "/proc/sys/fs/protected_regular";
constexpr char kHardlinks[] = "/proc/sys/fs/protected_hardlinks";

// Where the values are that the next run puts back if even the guard was killed.
constexpr char kRecord[] = "/run/vqreg-torture-protected";

struct Rules {
    int regular = 0;
    int hardlinks = 0;
    bool operator==(const Rules&) const = default;
};

int readRule(const char* path) {
    int value = -1;
    std::ifstream(path) >> value;
    return value;
}

Rules currentRules() {
    return {readRule(kRegular), readRule(kHardlinks)};
}

bool setRules(const Rules& rules) {
    std::ofstream(kRegular) << rules.regular << std::flush;
    std::ofstream(kHardlinks) << rules.hardlinks << std::flush;
    return currentRules() == rules;
}

// The machine's own rules. While it lives they may be changed.
class RulesGuard {
public:
    RulesGuard() : m_own(currentRules()) {
        std::ifstream left(kRecord);
        Rules before;
        if (left >> before.regular >> before.hardlinks) {
            m_own = before;
        }
        if (!setRules(m_own)) {
            throw CannotRun("the kernel's rules for links cannot be set here");
        }
        std::ofstream(kRecord) << m_own.regular << ' ' << m_own.hardlinks << std::endl;
        require(::pipe(m_life.data()) == 0, "no pipe");
        m_guard = std::make_unique<ForkedChild>([this] { return watch(); });
        ::close(m_life[0]);
    }
    ~RulesGuard() {
        ::close(m_life[1]);
        m_guard->wait();
    }
    RulesGuard(const RulesGuard&) = delete;
    RulesGuard& operator=(const RulesGuard&) = delete;

private:
    // Until the other end of the pipe is closed, by whatever end of the process.
    int watch() const {
        ::close(m_life[1]);
        ::setsid();
        char byte = 0;
        (void)!::read(m_life[0], &byte, 1);
        const bool isRestored = setRules(m_own);
        std::error_code ignored;
        fs::remove(kRecord, ignored);
        return isRestored ? 0 : 1;
    }

    Rules m_own;
    std::array<int, 2> m_life{-1, -1};
    std::unique_ptr<ForkedChild> m_guard;
};

// Where links to others' files are permitted, another user gives root's file a lock's or a block's name,
// so that whoever opens the store writes into it.
void linkStrangersFile(Run& run, const std::string& path, const std::string& object) {
    const std::string victim = "/dev/shm/victim";
    std::ofstream(victim) << "nobody else's";
    fs::permissions(victim, fs::perms{0600});
    makeCounter(path);
    removeObjects(path);
    const auto planter = spawnUser(
        [&] {
            std::error_code error;
            fs::create_hard_link(victim, object, error);
            return error ? 1 : 0;
        },
        kOther);
    requireEnd(*planter, "who plants a link");
    Common<Ledger> ledger;
    const auto user = spawnUser([&] { return countUpAsUser(path, *ledger, 0022); }, 0);
    (void)user->wait();
    require(vqtest::readFile(victim) == "nobody else's", "a stranger's file was written");
    require(fs::status(victim).permissions() == fs::perms{0600}, "a stranger's file was opened");
    require(!linesWith("\"" + object + "\"", "of user 0").empty(), "no line names the link");
    fs::remove(victim);
    removeObjects(path);
    run.add("links");
}

void playUnder(Run& run, const Rules& rules) {
    require(setRules(rules), "the rules cannot be set");
    requireUsersShare(run, kUsers[run.below(kUsers.size())], 0022);
    if (rules.hardlinks == 0) {
        const std::string path = newPlace(run);
        linkStrangersFile(run, path, run.below(2) == 0 ? lockOf(path) : blockOf(path));
        removePlace(path);
    }
}

}  // namespace

void protectedLinks(Run& run) {
    needOtherUsers();
    const vqtest::TraceLog log(1);
    for (std::uint64_t i = 0; i < run.count(); ++i) {
        for (const int regular : {0, 1, 2}) {
            for (const int hardlinks : {0, 1}) {
                const RulesGuard guard;
                try {
                    playUnder(run, {regular, hardlinks});
                } catch (const Violation& violation) {
                    throw Violation("protected_regular " + std::to_string(regular) +
                                    ", protected_hardlinks " + std::to_string(hardlinks) + ": " +
                                    violation.what());
                }
            }
        }
    }
}

}  // namespace vqtorture
