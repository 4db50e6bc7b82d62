// The mode of the files of a store.
#ifndef TOOLS_VQREG_STORE_OPENTOALL_H
#define TOOLS_VQREG_STORE_OPENTOALL_H

#include <sys/stat.h>

namespace vqreg {

// A store belongs to everybody, whatever mask the caller has for files of his own: while this lives,
// the process has none. What is private asks for its mode itself, and programs that are started get
// the caller's mask when it has gone.
class OpenToAll {
public:
    OpenToAll() : m_before(::umask(0)) {}
    ~OpenToAll() { ::umask(m_before); }
    OpenToAll(const OpenToAll&) = delete;
    OpenToAll& operator=(const OpenToAll&) = delete;

private:
    const mode_t m_before;
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_STORE_OPENTOALL_H
