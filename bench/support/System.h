/// Small doors to the system for the contenders: files, clocks, failures.
#ifndef VQREG_BENCH_SYSTEM_H
#define VQREG_BENCH_SYSTEM_H

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace bench {

inline void require(bool condition, const char* what) {
    if (!condition) [[unlikely]] {
        throw std::runtime_error(what);
    }
}

// Nanoseconds; the same for all processes.
inline std::int64_t now() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

class Descriptor {
public:
    Descriptor(const std::string& path, int flags, mode_t mode = 0)
        : m_descriptor(open(path.c_str(), flags | O_CLOEXEC, mode)) {
        require(m_descriptor >= 0, "a file cannot be opened");
    }
    ~Descriptor() { close(m_descriptor); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return m_descriptor; }

private:
    int m_descriptor;
};

// A block of memory that all processes of a contest see.
template <typename Content>
class Shared {
public:
    explicit Shared(const std::string& path) {
        const Descriptor file(path, O_RDWR | O_CREAT, 0600);
        require(posix_fallocate(file.get(), 0, sizeof(Content)) == 0, "no room for shared memory");
        void* const at =
            mmap(nullptr, sizeof(Content), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
        require(at != MAP_FAILED, "no shared memory");
        m_content = static_cast<Content*>(at);
    }
    ~Shared() { munmap(m_content, sizeof(Content)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    Content* operator->() const { return m_content; }
    Content& operator*() const { return *m_content; }

private:
    Content* m_content;
};

inline void writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    require(out.flush().good(), "a file cannot be written");
}

// Of this process, in bytes.
struct Memory {
    double own = 0;       // private to the process
    double resident = 0;  // with what it shares
};

inline Memory memoryNow() {
    std::ifstream file("/proc/self/smaps_rollup");
    require(file.good(), "no /proc/self/smaps_rollup");
    Memory memory;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string word;
        double kilobytes = 0;
        words >> word >> kilobytes;
        if (word == "Rss:") {
            memory.resident = kilobytes * 1024;
        } else if (word == "Private_Clean:" || word == "Private_Dirty:") {
            memory.own += kilobytes * 1024;
        }
    }
    return memory;
}

}  // namespace bench

#endif  // VQREG_BENCH_SYSTEM_H
