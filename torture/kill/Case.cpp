#include "kill/Case.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/ForkedChild.h"
#include "support/OtherUser.h"

namespace vqtorture {

namespace {

constexpr uid_t kAnother = vqtest::kNobody;
constexpr mode_t kPassable = 0755;

// Not as an ordinary user, and not below a directory that is only this one's.
bool mayBeOtherUser(const std::string& directory) {
    if (::geteuid() != 0) {
        return false;
    }
    ::chmod(directory.c_str(), kPassable);
    vqtest::ForkedChild child([&] {
        becomeUserOf({Deed::eSet, Scene::eAlone, true});
        return ::access(directory.c_str(), X_OK) == 0 ? 0 : 1;
    });
    return child.wait() == 0;
}

}  // namespace

std::string Case::words() const {
    const char* const where = scene == Scene::eWitnessed ? " beside others"
                              : scene == Scene::eAlone   ? " alone"
                                                         : " of nothing";
    return nameOf(deed) + std::string(where) + (isOfAnotherUser ? ", by another user" : "");
}

std::vector<Case> allCases(const Run& run) {
    std::vector<Case> cases;
    for (const Deed deed : kDeeds) {
        cases.push_back({deed, Scene::eWitnessed});
        cases.push_back({deed, Scene::eAlone});
    }
    cases.push_back({Deed::eOpen, Scene::eNothing});
    if (mayBeOtherUser(run.directory())) {
        cases.push_back({Deed::eSet, Scene::eWitnessed, true});
        cases.push_back({Deed::eUpdate, Scene::eAlone, true});
    }
    return cases;
}

void becomeUserOf(const Case& what) {
    if (what.isOfAnotherUser) {
        require(::setgroups(0, nullptr) == 0 && ::setresgid(kAnother, kAnother, kAnother) == 0 &&
                    ::setresuid(kAnother, kAnother, kAnother) == 0,
                "another user is refused");
    }
}

}  // namespace vqtorture
