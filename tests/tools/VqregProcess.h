// The command as a process.
#ifndef VQTEST_VQREG_PROCESS_H
#define VQTEST_VQREG_PROCESS_H

#include <string>
#include <vector>

#include "support/ChildProcess.h"

namespace vqtest {

/// The built command.
class VqregProcess : public ChildProcess {
public:
    explicit VqregProcess(const std::vector<std::string>& arguments,
                          const Environment& environment = {})
        : ChildProcess(VQREG_COMMAND_PATH, arguments, environment) {}
};

/// Runs the command to its end.
inline CommandResult runVqreg(const std::vector<std::string>& arguments,
                              const std::string& input = {},
                              const VqregProcess::Environment& environment = {}) {
    return VqregProcess(arguments, environment).finish(input);
}

}  // namespace vqtest

#endif  // VQTEST_VQREG_PROCESS_H
