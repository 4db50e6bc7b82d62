// Programs run where the system tells nobody of changes of files.
#ifndef VQTEST_UNTOLD_H
#define VQTEST_UNTOLD_H

#include <string>
#include <vector>

#include "support/ChildProcess.h"

namespace vqtest {

/// Runs a program as if all of what tells of changes were taken; its arguments are `untold` and then the
/// program and its own.
constexpr char kUntold[] = "/usr/bin/unshare";

inline std::vector<std::string> untold(const std::string& program) {
    return {"--user",
            "--map-root-user",
            "/bin/sh",
            "-ec",
            "echo 0 >/proc/sys/user/max_inotify_instances; exec \"$@\"",
            "sh",
            program};
}

/// Whether namespaces of users can be made.
inline bool mayRunUntold() {
    return ChildProcess(kUntold, untold("true")).finish().status == 0;
}

}  // namespace vqtest

#endif  // VQTEST_UNTOLD_H
