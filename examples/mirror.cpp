// Mirrors a directory tree of small text files, such as /proc/sys, into a store: directories become
// keys, files become values. Then starts another program on the same store, prints what that one has
// changed the moment it announces it, and reads it once more by itself.
//
//   mirror DIRECTORY STORE|- TREE [PROGRAM]
//
// STORE is the path of a configuration file, "-" the default store. TREE names the key below the
// root key that receives the mirror.
#include <VQRegLib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

namespace {

namespace fs = std::filesystem;
using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

struct Counts {
    int keys = 0;
    int dwords = 0;
    int strings = 0;
    int unreadable = 0;
    int unstorable = 0;
    int failed = 0;
};

// The text of a file without its last line end; nothing when it cannot be read.
std::optional<std::string> readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    if (!in || !(text << in.rdbuf())) {
        // An empty file puts nothing into the stream, which counts as a failure there.
        return in.is_open() && !in.bad() && text.str().empty() ? std::optional<std::string>("")
                                                               : std::nullopt;
    }
    std::string result = text.str();
    if (!result.empty() && result.back() == '\n') {
        result.pop_back();
    }
    return result;
}

std::optional<unsigned long> asDword(const std::string& text) {
    if (text.empty() || text.size() > 10 ||
        !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return std::nullopt;
    }
    const unsigned long long number = std::stoull(text);
    if (number > 0xFFFFFFFFull) {
        return std::nullopt;
    }
    return static_cast<unsigned long>(number);
}

// What one line of the configuration file can give back.
bool fitsIntoLine(const std::string& name, const std::string& text) {
    constexpr std::size_t kLongestLine = 2047;
    constexpr std::string_view kLineEnds("\r\n\0", 3);
    return name.find_first_of("\":\r\n") == std::string::npos &&
           text.find_first_of(kLineEnds) == std::string::npos &&
           name.size() + text.size() + std::strlen("\"\"=string:") <= kLongestLine;
}

bool isKeyName(const std::string& name) {
    return name.find_first_of("]\\\r\n") == std::string::npos;
}

class Mirror {
public:
    explicit Mirror(CRegLib& session) : m_session(session) {}

    void directory(const fs::path& path, CRegKey& key) {
        ++m_counts.keys;
        std::error_code error;
        for (const fs::directory_entry& entry : fs::directory_iterator(path, error)) {
            if (entry.is_symlink(error)) {
                continue;
            }
            if (entry.is_directory(error)) {
                subDirectory(entry.path(), key);
            } else {
                file(entry.path(), key);
            }
        }
    }

    const Counts& counts() const { return m_counts; }

private:
    void subDirectory(const fs::path& path, CRegKey& parent) {
        const std::string name = path.filename();
        CRegKey key;
        if (!isKeyName(name)) {
            ++m_counts.unstorable;
        } else if (m_session.VQRegCreateKey(&parent, name.c_str(), key, 1) < 0) {
            ++m_counts.failed;
        } else {
            directory(path, key);
        }
    }

    void file(const fs::path& path, CRegKey& key) {
        const std::string name = path.filename();
        const std::optional<std::string> text = readFile(path);
        if (!text) {
            ++m_counts.unreadable;
            return;
        }
        if (!fitsIntoLine(name, *text)) {
            ++m_counts.unstorable;
            return;
        }
        const std::optional<unsigned long> number = asDword(*text);
        const int result = number ? m_session.VQRegSetValue(key, name.c_str(), *number)
                                  : m_session.VQRegSetValue(key, name.c_str(), text->c_str());
        ++(result < 0 ? m_counts.failed : number ? m_counts.dwords : m_counts.strings);
    }

    CRegLib& m_session;
    Counts m_counts;
};

bool run(const char* program, const char* store, const char* tree) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        execl(program, program, store, tree, static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

// Prints the host name when the store announces a change; one of several ways to use a handler.
class Follower : public VQRegLib::CRegistryChangeHandler {
public:
    Follower(CRegLib& session, std::string tree) : m_session(session), m_tree(std::move(tree)) {
        m_session.SetRegistryChangeHandler(this);
    }
    ~Follower() override { m_session.ClrRegistryChangeHandler(this); }
    Follower(const Follower&) = delete;
    Follower& operator=(const Follower&) = delete;

    // On a thread of the library.
    void OnRegistryChange() override {
        {
            CRegKey kernel;
            CRegLib::eDataType type = CRegLib::eNone;
            unsigned char data[256];
            unsigned long size = sizeof data;
            if (m_session.VQRegCreateKey(nullptr, (m_tree + "/kernel").c_str(), kernel, 0) >= 0 &&
                m_session.VQRegQueryValue(kernel, "hostname", type, data, &size) >= 0) {
                std::printf("Process %d is told of a change: hostname = \"%s\"\n", getpid(),
                            reinterpret_cast<const char*>(data));
            }
        }
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_called = true;
        m_condition.notify_all();
    }

    bool waitUntilCalled() {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_condition.wait_for(lock, std::chrono::seconds(10), [this] { return m_called; });
    }

private:
    CRegLib& m_session;
    const std::string m_tree;
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_called = false;
};

// Handlers are called when the file's modification time has moved by whole seconds.
void waitForNextSecond() {
    const auto now = std::chrono::system_clock::now();
    const auto second = std::chrono::time_point_cast<std::chrono::seconds>(now);
    std::this_thread::sleep_until(second + std::chrono::milliseconds(1010));
}

void showBytes(const unsigned char* data, unsigned long size) {
    for (unsigned long i = 0; i < size; ++i) {
        std::printf(" %02X", data[i]);
    }
    std::printf("\n");
}

bool showChanges(CRegLib& session, CRegKey& tree) {
    CRegKey kernel;
    CRegLib::eDataType type = CRegLib::eNone;
    unsigned char data[256];
    unsigned long size = sizeof data;
    if (session.VQRegCreateKey(&tree, "kernel", kernel, 0) < 0 ||
        session.VQRegQueryValue(kernel, "hostname", type, data, &size) < 0) {
        return false;
    }
    std::printf("   hostname is now \"%s\"\n", reinterpret_cast<const char*>(data));
    size = sizeof data;
    if (session.VQRegQueryValue(kernel, "fingerprint", type, data, &size) < 0 ||
        type != CRegLib::eBinary) {
        return false;
    }
    std::printf("   fingerprint holds %lu bytes:", size);
    showBytes(data, size);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: mirror DIRECTORY STORE|- TREE [PROGRAM]\n");
        return 2;
    }
    const char* const store = std::strcmp(argv[2], "-") == 0 ? nullptr : argv[2];
    CRegLib session(store, nullptr, CRegLib::eLocationDefault, nullptr);
    CRegKey tree;
    const int result = session.VQRegCreateKey(nullptr, argv[3], tree, 1);
    if (result < 0) {
        std::fprintf(stderr, "mirror: cannot open the store: 0x%08X\n",
                     static_cast<unsigned>(result));
        return 1;
    }
    const auto start = std::chrono::steady_clock::now();
    Mirror mirror(session);
    mirror.directory(argv[1], tree);
    const Counts& counts = mirror.counts();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::printf("Process %d mirrored %s in %.2f s: %d keys, %d numbers, %d texts;\n", getpid(),
                argv[1], took.count(), counts.keys, counts.dwords, counts.strings);
    std::printf("   skipped %d unreadable files and %d that no line can hold; %d failures.\n",
                counts.unreadable, counts.unstorable, counts.failed);
    if (argc < 5) {
        return counts.failed == 0 ? 0 : 1;
    }
    Follower follower(session, argv[3]);
    waitForNextSecond();
    if (!run(argv[4], argv[2], argv[3])) {
        std::fprintf(stderr, "mirror: %s failed\n", argv[4]);
        return 1;
    }
    if (!follower.waitUntilCalled()) {
        std::fprintf(stderr, "mirror: the change was not announced\n");
        return 1;
    }
    std::printf("Process %d reads again:\n", getpid());
    return showChanges(session, tree) && counts.failed == 0 ? 0 : 1;
}
