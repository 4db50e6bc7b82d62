// Programs run as another user, for whom permissions count.
#ifndef VQTEST_OTHER_USER_H
#define VQTEST_OTHER_USER_H

#include <cstdlib>
#include <string>
#include <vector>

namespace vqtest {

/// Runs a program as the user "nobody", or as one that has no name; its arguments are `asAnother` and
/// then those of the program.
constexpr char kAsAnother[] = "/usr/bin/setpriv";
constexpr int kNobody = 65534;
constexpr int kNameless = 65533;

inline std::vector<std::string> asAnother(const std::string& program, int user = kNobody) {
    const std::string number = std::to_string(user);
    return {"--reuid=" + number, "--regid=" + number, "--clear-groups", program};
}

/// Whether that works: not without privileges, nor where that user may not reach the program.
inline bool mayRunAsAnother(const std::string& program) {
    std::string command = kAsAnother;
    for (const std::string& argument : asAnother("test")) {
        command += ' ' + argument;
    }
    return std::system((command + " -x '" + program + "' 2>/dev/null").c_str()) == 0;
}

}  // namespace vqtest

#endif  // VQTEST_OTHER_USER_H
