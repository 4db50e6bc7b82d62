#include "support/TraceLog.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "support/TempStore.h"

namespace fs = std::filesystem;

namespace vqtest {

namespace {

constexpr const char* kConfiguration = "/etc/Velquist.cfg";
constexpr std::string_view kHeader = "*** Log file opened (";

bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

bool isUpperHex(char byte) {
    return isDigit(byte) || (byte >= 'A' && byte <= 'F');
}

bool isHex(char byte) {
    return isUpperHex(byte) || (byte >= 'a' && byte <= 'f');
}

// Takes a line apart from its front. Once something does not fit, everything after fails too.
class Scanner {
public:
    explicit Scanner(std::string_view rest) : m_rest(rest) {}

    bool literal(std::string_view expected) {
        if (!m_rest.starts_with(expected)) {
            return false;
        }
        m_rest.remove_prefix(expected.size());
        return true;
    }

    bool number(std::size_t digits, int limit, int& value) {
        if (m_rest.size() < digits) {
            return false;
        }
        value = 0;
        for (std::size_t i = 0; i < digits; ++i) {
            if (!isDigit(m_rest[i])) {
                return false;
            }
            value = value * 10 + (m_rest[i] - '0');
        }
        m_rest.remove_prefix(digits);
        return value < limit;
    }

    // A positive number as "%5d" prints it.
    bool paddedNumber(int& value) {
        const std::size_t spaces = std::min(m_rest.find_first_not_of(' '), m_rest.size());
        std::size_t digits = 0;
        while (spaces + digits < m_rest.size() && isDigit(m_rest[spaces + digits])) {
            ++digits;
        }
        const bool isPadded = spaces + digits == 5 || (spaces == 0 && digits > 5);
        if (!isPadded || digits == 0 || digits > 9 || m_rest[spaces] == '0') {
            return false;
        }
        m_rest.remove_prefix(spaces);
        return number(digits, 1000000000, value);
    }

    std::string_view rest() const { return m_rest; }

private:
    std::string_view m_rest;
};

bool isLogName(const std::string& name) {
    constexpr std::string_view kPattern = "RegLibTrace-######.Log";
    return name.size() == kPattern.size() &&
           std::equal(name.begin(), name.end(), kPattern.begin(), [](char byte, char pattern) {
               return pattern == '#' ? isDigit(byte) : byte == pattern;
           });
}

void readLines(const std::string& text, TraceLog::Content& content) {
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = text.find('\n', begin);
        const bool isComplete = end != std::string::npos;
        const std::string line = text.substr(begin, isComplete ? end - begin : end);
        const auto parsed = parseTraceLine(line);
        if (isComplete && parsed) {
            content.lines.push_back(*parsed);
        } else {
            content.malformed.push_back(line);
        }
        begin = isComplete ? end + 1 : text.size();
    }
}

}  // namespace

std::optional<TraceLine> parseTraceLine(std::string_view line) {
    TraceLine result;
    Scanner scanner(line);
    // The seconds may be 60: the clock knows leap seconds.
    result.hasPrefix = scanner.number(2, 24, result.hour) && scanner.literal(":") &&
                       scanner.number(2, 60, result.minute) && scanner.literal(":") &&
                       scanner.number(2, 61, result.second) && scanner.literal(".") &&
                       scanner.number(3, 1000, result.millisecond) && scanner.literal(" (") &&
                       scanner.paddedNumber(result.pid) && scanner.literal(":") &&
                       scanner.paddedNumber(result.tid) && scanner.literal(") ");
    if (!result.hasPrefix) {
        if (!line.starts_with(kHeader)) {
            return std::nullopt;
        }
        result = TraceLine();
    }
    result.text = result.hasPrefix ? scanner.rest() : line;
    result.isHeader = result.text.starts_with(kHeader);
    return result;
}

std::string withoutAddresses(std::string_view text) {
    constexpr std::size_t kLength = 10;
    std::string result;
    while (!text.empty()) {
        const bool isNumber = text.starts_with("0x") && text.size() >= kLength &&
                              std::all_of(text.begin() + 2, text.begin() + kLength, isUpperHex) &&
                              (text.size() == kLength || !isHex(text[kLength]));
        if (isNumber) {
            result += text.starts_with("0xC1250F") ? text.substr(0, kLength) : "0x@";
            text.remove_prefix(kLength);
        } else {
            result += text.front();
            text.remove_prefix(1);
        }
    }
    return result;
}

bool inPrivateRoot() {
    const char* value = std::getenv("VQREG_PRIVATE_ROOT");
    return value != nullptr && std::strcmp(value, "1") == 0;
}

TraceLog::TraceLog(std::uint32_t level, Directory directoryChoice) {
    if (!inPrivateRoot()) {
        throw std::logic_error("tests of the trace must run under private_root");
    }
    std::array<char, 64> line{};
    std::snprintf(line.data(), line.size(), "\"RegLibLogging\"=dword:%08X\n",
                  static_cast<unsigned>(level));
    std::ofstream out(kConfiguration, std::ios::binary | std::ios::trunc);
    out << "[Velquist/Logging]\n" << line.data();
    out.close();
    if (!out) {
        throw std::runtime_error(std::string("cannot write ") + kConfiguration);
    }
    if (directoryChoice == Directory::eCreate) {
        fs::create_directories(directory());
    }
}

std::string TraceLog::directory() {
    return "/cf/corvanedata/Logs/";
}

std::string TraceLog::path() {
    const std::time_t now = std::time(nullptr);
    std::tm day{};
    ::localtime_r(&now, &day);
    std::array<char, 64> name{};
    std::strftime(name.data(), name.size(), "RegLibTrace-%y%m%d.Log", &day);
    return directory() + name.data();
}

std::vector<std::string> TraceLog::files() const {
    std::vector<std::string> paths;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(directory(), error)) {
        if (isLogName(entry.path().filename().string())) {
            paths.push_back(entry.path().string());
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

TraceLog::Content TraceLog::read() const {
    Content content;
    for (const std::string& path : files()) {
        readLines(readFile(path), content);
    }
    return content;
}

std::vector<std::string> TraceLog::texts(Addresses addresses, int pid) const {
    const Content content = read();
    if (!content.malformed.empty()) {
        throw std::runtime_error("malformed line in the trace: " + content.malformed.front());
    }
    std::vector<std::string> result;
    for (const TraceLine& line : content.lines) {
        if (!line.isHeader && (pid == 0 || pid == line.pid)) {
            const bool replace = addresses == Addresses::eReplace;
            result.push_back(replace ? withoutAddresses(line.text) : line.text);
        }
    }
    return result;
}

}  // namespace vqtest
