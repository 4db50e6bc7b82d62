// Key paths: names separated by slashes or backslashes.
#ifndef REGLIB_TEXT_KEYPATH_H
#define REGLIB_TEXT_KEYPATH_H

#include <cstddef>
#include <string_view>

namespace VQRegLib {

// Walks over the names of a path. Empty names count, so every path has at least one.
class CKeyPath {
public:
    explicit CKeyPath(std::string_view path) : m_rest(path) {}

    // False when there is no further name.
    bool next(std::string_view& name) {
        if (m_done) {
            return false;
        }
        std::size_t end = 0;
        while (end < m_rest.size() && m_rest[end] != '/' && m_rest[end] != '\\') {
            ++end;
        }
        m_done = end == m_rest.size();
        name = m_rest.substr(0, end);
        if (!m_done) {
            m_rest.remove_prefix(end + 1);
        }
        return true;
    }

private:
    std::string_view m_rest;
    bool m_done = false;
};

}  // namespace VQRegLib

#endif  // REGLIB_TEXT_KEYPATH_H
