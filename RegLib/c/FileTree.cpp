#include "RegLib/c/FileTree.h"

#include <cerrno>
#include <utility>

#include "RegLib/file/FileSource.h"
#include "RegLib/text/KeyPath.h"
#include "RegLib/tree/Merge.h"
#include "portable/FileOps.h"

namespace VQRegLib {

namespace {

// What has no memory or no descriptor left, or was interrupted, is no fault of the file, and is over without
// anybody changing it.
int codeOf(int error) {
    switch (error) {
        case 0:
            return REGLIB_OK;
        case ENOENT:
            return REGLIB_E_NOT_FOUND;
        case ENOMEM:
        case EMFILE:
        case ENFILE:
        case EINTR:
            return REGLIB_E_FAIL;
        default:
            return REGLIB_E_FILE_OPEN;
    }
}

class CReadFile {
public:
    explicit CReadFile(const std::string& path)
        : m_file(CFileOps::current().openForReading(path.c_str())), m_error(m_file ? 0 : errno) {}
    ~CReadFile() {
        if (m_file) {
            (void)CFileOps::current().close(std::move(m_file));  // nothing was written
        }
    }
    CReadFile(const CReadFile&) = delete;
    CReadFile& operator=(const CReadFile&) = delete;

    COpenFile& get() { return m_file; }
    int result() const { return codeOf(m_error); }

private:
    COpenFile m_file;
    int m_error;
};

}  // namespace

int readTree(const std::string& file, std::unique_ptr<CTree>& tree) {
    CReadFile opened(file);
    if (opened.result() < 0) {
        return opened.result();
    }
    auto made = std::make_unique<CTree>();
    CFileSource source(opened.get());
    source.beQuiet();
    const CMergeResult merged = mergeText(*made, source);
    if (merged.readError != 0) {
        return codeOf(merged.readError);
    }
    if (merged.code != REGLIB_E_END_OF_FILE) {
        return merged.code;
    }
    tree = std::move(made);
    return REGLIB_OK;
}

const CKeyOrValue* findKey(const CTree& tree, std::string_view path) {
    const CKeyOrValue* at = &tree.root();
    CKeyPath names(path);
    for (std::string_view name; at && names.next(name);) {
        at = tree.findChild(*at, CHashedName(name));
    }
    return at && at->isKey() ? at : nullptr;
}

bool readText(const std::string& file, std::string& text) {
    CReadFile opened(file);
    if (opened.result() < 0) {
        return false;
    }
    CFileSource source(opened.get());
    text.resize(source.size());
    text.resize(source.read(text.data(), text.size()));
    return source.error() == 0;
}

}  // namespace VQRegLib
