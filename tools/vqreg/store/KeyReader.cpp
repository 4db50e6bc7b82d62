#include "tools/vqreg/store/KeyReader.h"

#include "tools/vqreg/terminal/Listing.h"

namespace vqreg {

std::optional<Key> KeyReader::read(bool isSlowPoll) {
    const std::optional<ConfigText> parsed = m_follower.read(isSlowPoll);
    if (!parsed) {
        return std::nullopt;
    }
    if (!parsed->isReadable()) {
        printFindings(m_follower.file(), parsed->findings);
        return std::nullopt;
    }
    const Key* const key = findKey(parsed->top, m_path);
    return key ? *key : Key();
}

}  // namespace vqreg
