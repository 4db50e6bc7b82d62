// One file must be one lock, however it is spelled: `a.cfg`, `./a.cfg` and the absolute path. So the
// directory is resolved, the last name is taken as it is (a link there has been followed before, once, when
// the store was opened), and the result is written so that no two paths give one name: "/" and "%" are
// encoded. Names end at 255 bytes; longer ones keep their beginning, which people can read, and end in
// 128 bits of a hash.
#include "portable/ObjectName.h"

#include <climits>
#include <cstdio>
#include <cstdlib>

namespace VQRegLib {

namespace {

constexpr std::size_t kLongestName = NAME_MAX;

std::string absolutePath(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    char resolved[PATH_MAX];
    if (!realpath(directory.c_str(), resolved)) {
        return path;  // no such directory: no file can be there either
    }
    std::string result(resolved);
    if (result.back() != '/') {
        result += '/';
    }
    return result + name;
}

std::string encoded(const std::string& path) {
    std::string result;
    for (const char c : path) {
        if (c == '/') {
            result += "%2F";
        } else if (c == '%') {
            result += "%25";
        } else {
            result += c;
        }
    }
    return result;
}

__extension__ using uint128 = unsigned __int128;

}  // namespace

CSharedPath::CSharedPath(const std::string& path) : m_text(absolutePath(path)) {}

std::string objectName(const std::string& kind, const CSharedPath& path) {
    std::string whole = kind + "." + encoded(path.text());
    if (whole.size() <= kLongestName) {
        return whole;
    }
    const std::string hash = "#" + hash128(whole);
    return whole.substr(0, kLongestName - hash.size()) + hash;
}

std::string objectFile(const std::string& name) {
    return std::string(kObjectDirectory) + "/" + name;
}

std::string objectPath(const std::string& kind, const CSharedPath& path) {
    return objectFile(objectName(kind, path));
}

// FNV-1a with its 128-bit parameters.
std::string hash128(const std::string& text) {
    const uint128 prime = (uint128{1} << 88) + 0x13b;
    uint128 hash = (uint128{0x6c62272e07bb0142u} << 64) + 0x62b821756295c58du;
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * prime;
    }
    char digits[33];
    std::snprintf(digits, sizeof digits, "%016llx%016llx",
                  static_cast<unsigned long long>(hash >> 64),
                  static_cast<unsigned long long>(hash & ~std::uint64_t{0}));
    return digits;
}

}  // namespace VQRegLib
