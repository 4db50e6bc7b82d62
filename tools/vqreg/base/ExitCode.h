// How the command ends. The manual has the same table.
#ifndef TOOLS_VQREG_BASE_EXITCODE_H
#define TOOLS_VQREG_BASE_EXITCODE_H

#include <stdexcept>
#include <string>

namespace vqreg {

enum class eExit : int {
    eDone = 0,
    eNegative = 1,     // missing, different, findings
    eUsage = 2,        // the command line cannot be understood
    eUnavailable = 3,  // the store cannot be opened
    eMalformed = 4,    // a file or an input is malformed
    eWrongKind = 5,    // a key where a value is needed, another type than asked for, a rule broken
    eLocked = 6,       // the lock was not obtained in time
    eWriteFailed = 7,  // a change could not be written
    eNotExecutable = 126,  // the program of `run`, as other commands that start programs have it
    eNotFound = 127
};

// Ends the command with a message on standard error: "vqreg: " and the text.
class CommandError : public std::runtime_error {
public:
    CommandError(eExit code, const std::string& message)
        : std::runtime_error(message), m_code(code) {}
    eExit code() const { return m_code; }

private:
    eExit m_code;
};

inline CommandError unavailable(const std::string& message) {
    return {eExit::eUnavailable, message};
}

}  // namespace vqreg

#endif  // TOOLS_VQREG_BASE_EXITCODE_H
