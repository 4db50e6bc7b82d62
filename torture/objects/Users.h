// Processes of several users on one store.
#ifndef VQTORTURE_USERS_H
#define VQTORTURE_USERS_H

#include <sys/stat.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>

#include "objects/Objects.h"
#include "support/Children.h"
#include "support/Ledger.h"
#include "support/Wait.h"

namespace vqtorture {

constexpr std::array<unsigned, 3> kUsers = {0, kOwner, kOther};
constexpr int kChangesOfUser = 5;

template <typename Body>
std::unique_ptr<ForkedChild> spawnUser(Body body, unsigned user) {
    return spawn(body, 20, user);
}

/// Under a narrow umask a change leaves a file that only its maker and root may open, until one of them
/// opens it. Others are refused meanwhile.
constexpr bool isNarrow(mode_t mask) {
    return (mask & 0004) != 0;
}

/// With this umask. Each change is tried until it is acknowledged, once where nothing may be refused.
inline int countUpAsUser(const std::string& path, Ledger& ledger, mode_t mask) {
    ::umask(mask);
    std::unique_ptr<VQRegLib::CRegLib> session;
    const auto patience = isNarrow(mask) ? std::chrono::seconds(15) : std::chrono::seconds(0);
    const bool isOpen = vqtest::waitUntil(
        [&] {
            session = vqtest::openSession(path);
            return session->RootKey() != nullptr;
        },
        patience);
    if (!isOpen) {
        return 1;
    }
    for (int i = 0; i < kChangesOfUser; ++i) {
        if (!vqtest::waitUntil([&] { return countUp(*session, ledger); }, patience)) {
            return 2;
        }
    }
    return 0;
}

/// One user makes a store with this umask, then all of them change it at once: nothing is refused, unless
/// the umask is narrow, nothing is lost, and objects and file are everybody's.
void requireUsersShare(Run& run, unsigned creator, mode_t mask);

}  // namespace vqtorture

#endif  // VQTORTURE_USERS_H
