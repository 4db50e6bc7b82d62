#include "load/Usage.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace fs = std::filesystem;

namespace vqtorture {

namespace {

constexpr char kObjects[] = "/dev/shm";

bool isSemaphore(const std::string& name) {
    return name.starts_with("sem.");
}

bool isAny(const std::string& /*name*/) {
    return true;
}

std::string fileOf(pid_t process, const char* name) {
    return "/proc/" + std::to_string(process) + "/" + name;
}

template <typename Predicate>
double countEntries(const std::string& directory, Predicate isCounted) {
    double count = 0;
    std::error_code error;
    fs::directory_iterator at(directory, error);
    while (!error && at != fs::directory_iterator()) {
        count += isCounted(at->path().filename().string()) ? 1 : 0;
        at.increment(error);
    }
    return count;
}

}  // namespace

double memoryOf(pid_t process) {
    std::ifstream rollup(fileOf(process, "smaps_rollup"));
    for (std::string word; rollup >> word;) {
        double kibibytes = 0;
        if (word == "Anonymous:" && rollup >> kibibytes) {
            return kibibytes;
        }
    }
    return 0;
}

double descriptorsOf(pid_t process) {
    return countEntries(fileOf(process, "fd"), isAny);
}

double threadsOf(pid_t process) {
    return countEntries(fileOf(process, "task"), isAny);
}

double segments() {
    std::ifstream table("/proc/sysvipc/shm");
    double lines = 0;
    for (std::string line; std::getline(table, line);) {
        ++lines;
    }
    return lines - 1;
}

double semaphores() {
    return countEntries(kObjects, isSemaphore);
}

double otherObjects() {
    return countEntries(kObjects, [](const std::string& name) { return !isSemaphore(name); });
}

double entriesBeside(const std::string& file) {
    const fs::path path(file);
    const std::string name = path.filename().string();
    return countEntries(path.parent_path().string(), [&](const std::string& entry) {
        return entry != name && entry != name + ".bak";
    });
}

void Usage::requireFlat(Run& run, const std::string& name, double share, double more) const {
    const std::vector<double>& samples = m_samples.at(name);
    const auto quarter = static_cast<std::ptrdiff_t>(samples.size() / 4);
    require(quarter > 2, "too few samples of " + name);
    require(*std::min_element(samples.begin(), samples.end()) > 0, name + " cannot be looked at");
    const double first = *std::max_element(samples.begin(), samples.begin() + quarter);
    const double last = *std::max_element(samples.end() - quarter, samples.end());
    run.highest(name + "_first", first);
    run.highest(name + "_last", last);
    require(last <= first * (1 + share) + more,
            name + " grows from " + std::to_string(first) + " to " + std::to_string(last));
}

}  // namespace vqtorture
