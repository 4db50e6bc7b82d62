// The text with which calls of vqreg.h and VQRegStore.h begin, and what they leave of it.
#ifndef VQTORTURE_MEMORY_CALLTEXTS_H
#define VQTORTURE_MEMORY_CALLTEXTS_H

#include <string>

namespace vqtorture {

inline const std::string kRootLines =
    "[Velquist]\n\"Number\"=dword:00000001\n\"Text\"=string:old\n";
inline const std::string kEmptyLine = "[Velquist/Empty]\n";
inline const std::string kKeyLine = "[Velquist/Key]\n";
inline const std::string kBytesLine = "\"Bytes\"=binary:0102\n";
inline const std::string kDeepLine = "\"Deep\"=dword:00000003\n";
inline const std::string kTextLine = "\"Text\"=string:below the root key\n";
inline const std::string kSubLines = "[Velquist/Key/Sub]\n\"Deep\"=dword:00000005\n";
inline const std::string kBelow = kBytesLine + kDeepLine + kTextLine + kSubLines;

inline const std::string kStart = kRootLines + kEmptyLine + kKeyLine + kBelow;

/// The same with other lines in the key "Key", and with lines behind all.
inline std::string withKey(const std::string& lines) {
    return kRootLines + kEmptyLine + kKeyLine + lines + kSubLines;
}
inline std::string withMore(const std::string& lines) {
    return kStart + lines;
}

}  // namespace vqtorture

#endif  // VQTORTURE_MEMORY_CALLTEXTS_H
