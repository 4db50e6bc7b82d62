// A store that the library has opened.
#ifndef TOOLS_VQREG_STORE_OPENSTORE_H
#define TOOLS_VQREG_STORE_OPENSTORE_H

#include <VQRegLib.h>

#include <memory>
#include <string>

#include "tools/vqreg/store/OpenToAll.h"
#include "tools/vqreg/store/StoreFile.h"

namespace vqreg {

class OpenStore {
public:
    // Throws eUnavailable, naming the file, its directory or their permissions, eMalformed with line
    // and column, or eNegative when the file has no root key and is not to get one. A lock that is not
    // obtained in time ends the process with eLocked.
    explicit OpenStore(const StoreOptions& options);
    OpenStore(const OpenStore&) = delete;
    OpenStore& operator=(const OpenStore&) = delete;

    const std::string& file() const { return m_file; }
    bool isToBeTold() const { return m_options.notify; }
    double timeoutSeconds() const { return m_options.timeoutSeconds; }
    VQRegLib::CRegLib& session() { return *m_session; }

    // Where paths begin.
    VQRegLib::CRegKey& start() { return m_options.wholeFile ? m_top : *m_session->RootKey(); }
    // What the lengths of key lines are counted from.
    std::string ruleRoot() const { return m_options.wholeFile ? std::string() : m_root; }

    // Throws for a code that is a failure.
    void check(int code) const;

    // The session stays as it is until the process ends, its lock included; there is none here any
    // more.
    void abandon();

private:
    void checkRootName() const;
    void checkNotLost() const;

    const OpenToAll m_openToAll;  // the first, so that it is the last to go
    const StoreOptions m_options;
    const std::string m_file;
    const std::string m_root;
    std::unique_ptr<VQRegLib::CRegLib> m_session;
    VQRegLib::CRegKey m_top;  // an empty handle: the top of the file
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_OPENSTORE_H
