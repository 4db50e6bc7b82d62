// A store of its own for the command, and what the command's answers look like.
#ifndef VQTEST_VQREG_STORE_H
#define VQTEST_VQREG_STORE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/TempStore.h"
#include "tools/VqregProcess.h"

namespace vqtest {

using Arguments = std::vector<std::string>;

inline CommandResult prints(const std::string& out) {
    return {.status = 0, .out = out, .err = ""};
}

/// Ends with a code and a line on standard error.
inline CommandResult fails(int status, const std::string& message) {
    return {.status = status, .out = "", .err = "vqreg: " + message + "\n"};
}

class VqregStore : public testing::Test {
protected:
    /// Runs the command on the store.
    CommandResult run(std::vector<std::string> arguments, const std::string& input = {}) const {
        arguments.insert(arguments.begin(), {"--file", file.path()});
        return runVqreg(arguments, input, {{"LC_ALL", "C"}});
    }

    /// Runs a command that must succeed and print nothing but that it has made a key.
    void make(const std::vector<std::string>& arguments) const {
        CommandResult result = run(arguments);
        if (result.err.starts_with("vqreg: made the key ")) {
            result.err.erase(0, result.err.find('\n') + 1);
        }
        EXPECT_EQ(result, prints(""));
    }

    TempStore file;
};

}  // namespace vqtest

#endif  // VQTEST_VQREG_STORE_H
