// Does something when a scope is left, by an exception too.
#ifndef REGLIB_BASE_ATEND_H
#define REGLIB_BASE_ATEND_H

#include <utility>

namespace VQRegLib {

template <typename Action>
class CAtEnd {
public:
    explicit CAtEnd(Action action) : m_action(std::move(action)) {}
    ~CAtEnd() { m_action(); }
    CAtEnd(const CAtEnd&) = delete;
    CAtEnd& operator=(const CAtEnd&) = delete;

private:
    Action m_action;
};

}  // namespace VQRegLib

#endif  // REGLIB_BASE_ATEND_H
