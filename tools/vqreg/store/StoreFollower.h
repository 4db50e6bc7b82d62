// The file of a store as it changes.
#ifndef TOOLS_VQREG_STORE_STOREFOLLOWER_H
#define TOOLS_VQREG_STORE_STOREFOLLOWER_H

#include <optional>
#include <string>

#include "tools/vqreg/base/FileIdentity.h"
#include "tools/vqreg/text/ConfigText.h"

namespace vqreg {

// Reads the file itself: a session keeps in its memory what other processes delete.
class StoreFollower {
public:
    explicit StoreFollower(std::string file) : m_file(std::move(file)) {}

    const std::string& file() const { return m_file; }

    // The text as it is now; none when it is the one of before. Where the file is missing, it may be
    // just being replaced: only if it still is at the next slow poll does that count as empty. A slow
    // poll reads only a file that is another one, has been written to or could not be read. Nobody is waited
    // for.
    std::optional<ConfigText> read(bool isSlowPoll);

    // Whether the last text was none at all: the file is missing or empty, which nobody wants.
    bool isLost() const { return m_text && m_text->empty(); }

    // Why the text that was read last is not that of the file as it is now: "the file is missing". Empty
    // where it is.
    std::string trouble() const;

private:
    bool isReadable(bool isThere);

    const std::string m_file;
    std::optional<FileIdentity> m_identity;
    std::optional<std::string> m_text;
    std::string m_trouble;
    bool m_wasMissing = false;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_STOREFOLLOWER_H
