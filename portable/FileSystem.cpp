#include "portable/FileSystem.h"

#include <sys/vfs.h>

#include <cerrno>
#include <cstdint>

#include "portable/PathParts.h"

namespace VQRegLib {

namespace {

struct CKind {
    std::uint32_t magic;  // as statfs gives it
    const char* name;
};

constexpr CKind kNetworkKinds[] = {
    {0x00006969, "nfs"},  {0xFF534D42, "cifs"},  {0xFE534D42, "smb2"},  {0x0000517B, "smb"},
    {0x01021997, "9p"},   {0x65735546, "fuse"},  {0x00C36400, "ceph"},  {0x0BD00BD0, "lustre"},
    {0x01161970, "gfs2"}, {0x7461636F, "ocfs2"}, {0x5346414F, "afs"},   {0x6B414653, "kafs"},
    {0x73757245, "coda"}, {0x47504653, "gpfs"},  {0x19830326, "fhgfs"}, {0xAAD7AAEA, "panfs"},
};

}  // namespace

const char* networkFileSystem(const std::string& path) {
    struct statfs status {};
    if (::statfs(path.c_str(), &status) != 0 &&
        (errno != ENOENT || ::statfs(directoryOfPath(path).c_str(), &status) != 0)) {
        return nullptr;
    }
    for (const CKind& kind : kNetworkKinds) {
        if (kind.magic == static_cast<std::uint32_t>(status.f_type)) {
            return kind.name;
        }
    }
    return nullptr;
}

}  // namespace VQRegLib
