// The log file under a clock that the test sets. Tests that use it link support/SetClock.cpp into an
// executable of their own, with -Wl,--wrap=time.
#ifndef VQTEST_TRACE_ROLL_OVER_FIXTURE_H
#define VQTEST_TRACE_ROLL_OVER_FIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "RegLib/trace/Trace.h"
#include "support/SetClock.h"
#include "support/TempStore.h"
#include "support/TraceLog.h"

namespace vqtest {

constexpr std::time_t kMinute = 60;
constexpr std::time_t kDay = 24 * 60 * kMinute;
constexpr std::time_t kMidnight = 1794787200;  // the beginning of 16 November 2026
inline const std::string kDirectory = "/cf/corvanedata/Logs/";
inline const std::string kFile15 = kDirectory + "RegLibTrace-261115.Log";
inline const std::string kFile16 = kDirectory + "RegLibTrace-261116.Log";

class RollOverFixture : public testing::Test {
protected:
    explicit RollOverFixture(TraceLog::Directory directory = TraceLog::Directory::eCreate)
        : m_log(1, directory) {
        g_now = kMidnight - 2 * kMinute;
        ::setenv("TZ", "UTC0", 1);
        ::tzset();
        CRegLibTrace::createInstance();
    }

    static CRegLibTrace& trace() { return *VQRegLib::g_pregLibTrace.load(); }
    static void write(const char* text) { trace().trace("%s\n", text); }

    // The texts of one file; "***" stands for its headers.
    static std::vector<std::string> linesOf(const std::string& path) {
        std::vector<std::string> result;
        const std::string text = vqtest::readFile(path);
        for (std::size_t begin = 0; begin < text.size();) {
            const std::size_t end = std::min(text.find('\n', begin), text.size());
            const auto line = vqtest::parseTraceLine(text.substr(begin, end - begin));
            result.push_back(!line ? "malformed" : line->isHeader ? "***" : line->text);
            begin = end + 1;
        }
        return result;
    }

    // The files of the log that this process has open.
    static std::vector<std::string> openLogs() {
        std::vector<std::string> result;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code error;
            const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
            if (target.starts_with(kDirectory)) {
                result.push_back(target);
            }
        }
        return result;
    }

    static int descriptorOf(const std::string& path) {
        std::error_code error;
        int fd = 255;
        while (fd >= 0 && std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd),
                                                        error) != std::filesystem::path(path)) {
            --fd;
        }
        return fd;
    }

    TraceLog m_log;
};

}  // namespace vqtest

#endif  // VQTEST_TRACE_ROLL_OVER_FIXTURE_H
