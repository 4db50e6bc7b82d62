// The form in which names are compared.
#ifndef REGLIB_BASE_FOLDEDNAME_H
#define REGLIB_BASE_FOLDEDNAME_H

#include <string>
#include <string_view>

namespace VQRegLib {

// A name in lower case. Names of usual length take no allocation: look-ups make one of these each.
class CFoldedName {
public:
    explicit CFoldedName(std::string_view name);
    CFoldedName(const CFoldedName&) = delete;
    CFoldedName& operator=(const CFoldedName&) = delete;

    std::string_view view() const { return m_view; }

private:
    char m_inline[256];
    std::string m_long;
    std::string_view m_view;
};

}  // namespace VQRegLib

#endif  // REGLIB_BASE_FOLDEDNAME_H
