// One file must be one lock, however it is spelled: `a.cfg`, `./a.cfg` and the absolute path. So the
// directory is resolved, the last name is taken as it is (a link there has been followed before, once, when
// the store was opened), and the result is written so that no two paths give one name: "/" and "%" are
// encoded. Names end at 255 bytes; longer ones keep their beginning, which people can read, and end in
// 128 bits of a hash.
#include "portable/ObjectName.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace VQRegLib {

namespace {

constexpr std::size_t kLongestName = NAME_MAX;

// Whoever is told these finds no file at the path, whatever its lock is called.
bool isOfThePath(int error) {
    return error == ENOENT || error == ENOTDIR || error == EACCES || error == ELOOP ||
           error == ENAMETOOLONG;
}

std::string absolutePath(const std::string& path, int& error) {
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    char resolved[PATH_MAX];
    if (!realpath(directory.c_str(), resolved)) {
        error = isOfThePath(errno) ? 0 : errno;
        return path;
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

using Words = std::array<std::uint32_t, 4>;  // of 128 bits, the lowest first

// Times 2^88 + 0x13b, by hand: not every machine has integers of 128 bits.
void multiplyByPrime(Words& words) {
    const Words shifted = {0, 0, words[0] << 24, words[1] << 24 | words[0] >> 8};
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < words.size(); ++i) {
        sum += std::uint64_t{words[i]} * 0x13b + shifted[i];
        words[i] = static_cast<std::uint32_t>(sum);
        sum >>= 32;
    }
}

}  // namespace

CSharedPath::CSharedPath(const std::string& path) : m_text(absolutePath(path, m_error)) {}

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
    Words hash = {0x6295c58d, 0x62b82175, 0x07bb0142, 0x6c62272e};
    for (const char c : text) {
        hash[0] ^= static_cast<unsigned char>(c);
        multiplyByPrime(hash);
    }
    char digits[33];
    std::snprintf(digits, sizeof digits, "%08x%08x%08x%08x", hash[3], hash[2], hash[1], hash[0]);
    return digits;
}

}  // namespace VQRegLib
