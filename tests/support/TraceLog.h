// Switching on the trace of the library for a test and reading it.
#ifndef VQTEST_TRACE_LOG_H
#define VQTEST_TRACE_LOG_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vqtest {

/// One line of a trace log, its prefix "HH:MM:SS.mmm (pid:tid) " taken apart. A header line, which
/// begins with "*** Log file opened (", may do without the prefix; the numbers are 0 then.
struct TraceLine {
    bool isHeader = false;
    bool hasPrefix = false;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int millisecond = 0;
    int pid = 0;
    int tid = 0;
    std::string text;
};

/// @param line  without its line end
/// @return nothing when the line is neither well formed nor a header
std::optional<TraceLine> parseTraceLine(std::string_view line);

/// Replaces every "0x" with exactly eight upper-case digits by "0x@", but leaves the result codes
/// of the library ("0xC1250F..") alone.
std::string withoutAddresses(std::string_view text);

/// Whether the process runs under private_root, so that it may touch the default paths.
bool inPrivateRoot();

/// Sets up the trace before the first session of a process (or of an agent) reads its level.
class TraceLog {
public:
    enum class Directory { eCreate, eLeaveMissing };
    enum class Addresses { eKeep, eReplace };

    struct Content {
        std::vector<TraceLine> lines;        ///< headers included
        std::vector<std::string> malformed;  ///< also a last line without a line end
    };

    /// Writes the level to /etc/Velquist.cfg, replacing the file, and creates the log directory.
    /// @throws std::logic_error outside a private root
    explicit TraceLog(std::uint32_t level, Directory directory = Directory::eCreate);

    static std::string directory();  ///< with a "/" at its end
    static std::string path();       ///< of the file of this day

    /// The log files that exist, in the order of their days: there are two after midnight.
    std::vector<std::string> files() const;

    Content read() const;

    /// The texts of all lines but the headers.
    /// @param pid  only the lines of that process; 0 means all
    /// @throws std::runtime_error when there is a malformed line
    std::vector<std::string> texts(Addresses addresses = Addresses::eKeep, int pid = 0) const;
};

}  // namespace vqtest

#endif  // VQTEST_TRACE_LOG_H
