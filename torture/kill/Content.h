// What is in the store that processes die in: every text of it tells whether it is whole.
#ifndef VQTORTURE_KILL_CONTENT_H
#define VQTORTURE_KILL_CONTENT_H

#include <cstdint>
#include <string>

#include "support/Agent.h"
#include "support/Sessions.h"

namespace vqtorture {

/// Three numbers. `set` is one value, `update` is the same in one value of each of several keys, which
/// updates change together, and `other` is what those that live on change.
struct Content {
    std::uint32_t set = 0;
    std::uint32_t update = 0;
    std::uint32_t other = 0;

    bool operator==(const Content&) const = default;

    /// The whole file; a few buffers of it, so that a part of it can be missing.
    std::string text() const;

    /// For messages.
    std::string words() const;
};

constexpr int kParts = 6;  // the keys of an update

/// "Part0" and so on.
std::string partName(int part);

/// @throws Violation unless the text is the whole text of some content
Content contentOf(const std::string& text);

/// What a process sees. @throws Violation unless all parts are alike
Content seenBy(vqtest::CRegLib& session);
Content seenBy(vqtest::Agent& agent);

}  // namespace vqtorture

#endif  // VQTORTURE_KILL_CONTENT_H
