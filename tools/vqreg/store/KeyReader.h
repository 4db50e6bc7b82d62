// A key that is followed.
#ifndef TOOLS_VQREG_STORE_KEYREADER_H
#define TOOLS_VQREG_STORE_KEYREADER_H

#include <optional>
#include <string>

#include "tools/vqreg/base/FileIdentity.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/text/Model.h"
#include "tools/vqreg/text/Path.h"

namespace vqreg {

// Reads the file itself: a session keeps in its memory what other processes delete.
class KeyReader {
public:
    KeyReader(const StoreOptions& options, const Path& path)
        : m_file(storeFile(options)), m_path(fullPath(options, path)) {}

    // The key as it is now. None when there is nothing new, and while the file is malformed, which
    // is said once. Where it is missing, it may be just being replaced: only if it still is at the
    // next slow poll does that count as empty.
    std::optional<Key> read(bool isSlowPoll);

    // Whether the last text was none at all: the file is missing or empty, which nobody wants.
    bool isFileLost() const { return m_text && m_text->empty(); }

private:
    const std::string m_file;
    const Path m_path;
    std::optional<FileIdentity> m_identity;
    std::optional<std::string> m_text;
    bool m_wasMissing = false;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_KEYREADER_H
