#include "RegLib/file/StoreFile.h"

#include "portable/FileLink.h"
#include "portable/FileOps.h"

namespace VQRegLib {

namespace {

constexpr char kPreferredDirectory[] = "/velquist/etc";
constexpr char kPreferredFile[] = "/velquist/etc/Velquist.cfg";
constexpr char kUsualFile[] = "/etc/Velquist.cfg";

}  // namespace

std::string storeFile(const char* name) {
    if (name) {
        return fileBehindLinks(name);
    }
    const bool isPreferred = CFileOps::current().exists(kPreferredDirectory);
    return fileBehindLinks(isPreferred ? kPreferredFile : kUsualFile);
}

}  // namespace VQRegLib
