#include "power/Writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "VQRegLib.h"
#include "portable/FileDescriptor.h"
#include "portable/FileOps.h"
#include "support/Wait.h"

namespace vqtorture {

namespace {

using VQRegLib::CRegLib;

constexpr std::uint32_t kTexts = 6;

// A file system that refuses links, or knows neither links nor exchanges.
class LimitedFileOps : public VQRegLib::CFileOps {
public:
    explicit LimitedFileOps(Way way) : m_way(way) {}

    int link(const char* path, const char* newPath) override {
        return m_way == Way::eLink ? CFileOps::link(path, newPath) : refuse(EPERM);
    }
    int exchange(const char* path, const char* other) override {
        return m_way == Way::eExchange ? CFileOps::exchange(path, other) : refuse(EINVAL);
    }

private:
    static int refuse(int error) {
        errno = error;
        return -1;
    }

    const Way m_way;
};

std::string filling(std::uint32_t changes, std::uint32_t number) {
    const std::uint32_t size = (changes * 37 + number * 211) % 1500;
    return std::string(size, static_cast<char>('a' + (changes + number) % 26));
}

std::string nameOf(std::uint32_t number) {
    return "Text" + std::to_string(number);
}

int change(CRegLib& session, std::uint32_t changes) {
    VQRegLib::CRegUpdate update(session);
    if (update.result() < 0) {
        return update.result();
    }
    VQRegLib::CRegKey& root = *session.RootKey();
    int result = session.VQRegSetValue(root, "Count", static_cast<unsigned long>(changes));
    for (std::uint32_t number = 0; number < kTexts && result >= 0; ++number) {
        result =
            session.VQRegSetValue(root, nameOf(number).c_str(), filling(changes, number).c_str());
    }
    const int end = update.end();
    return result < 0 ? result : end;
}

int changeUntilKilled(const std::string& file, std::uint32_t changes, Way way, bool isSynced,
                      Progress& progress) {
    LimitedFileOps files(way);
    VQRegLib::CFileOps::replace(&files);
    ::setenv("VQREG_SYNC", isSynced ? "1" : "0", 1);
    CRegLib session(file.c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    if (!session.RootKey()) {
        return 1;
    }
    for (;;) {
        progress.begun = ++changes;
        if (change(session, changes) < 0) {
            ::pause();  // the power is gone: nothing after it is true
        }
        progress.acknowledged = changes;
    }
}

int disturb(const std::string& directory, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    const std::string path = directory + "/other";
    const VQRegLib::CFileDescriptor file(
        ::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    for (;;) {
        if (::write(file.get(), "x", 1) != 1) {
            ::pause();
        }
        random() % 8 == 0 ? ::syncfs(file.get()) : ::fsync(file.get());
        ::usleep(static_cast<useconds_t>(random() % 4000));
    }
}

}  // namespace

std::string textAfter(std::uint32_t changes) {
    char count[32];
    std::snprintf(count, sizeof count, "%08X", changes);
    std::string text = "[Velquist]\n\"Count\"=dword:" + std::string(count) + '\n';
    for (std::uint32_t number = 0; number < kTexts; ++number) {
        text += '"' + nameOf(number) + "\"=string:" + filling(changes, number) + '\n';
    }
    return text;
}

std::int64_t changesIn(const std::string& text) {
    unsigned changes = 0;
    return std::sscanf(text.c_str(), "[Velquist]\n\"Count\"=dword:%8X\n", &changes) == 1 &&
                   text == textAfter(changes)
               ? std::int64_t{changes}
               : -1;
}

Writer::Writer(const std::string& file, std::uint32_t changes, Way way, bool isSynced)
    : m_child([=, this] { return changeUntilKilled(file, changes, way, isSynced, *m_progress); }) {}

void Writer::awaitChanges(std::uint32_t count) {
    const std::uint32_t end = m_progress->begun + count;
    require(vqtest::waitUntil([&] { return m_progress->begun >= end; }), "the writer gets on");
}

Bystander::Bystander(const std::string& directory, std::uint64_t seed)
    : m_child([=] { return disturb(directory, seed); }) {}

bool isUsable(const std::string& file) {
    vqtest::ForkedChild child([&] {
        CRegLib session(file.c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
        VQRegLib::CRegKey* const root = session.RootKey();
        return root && session.VQRegSetValue(*root, "After", 1ul) >= 0 &&
                       session.VQRegDeleteValue(*root, "After") >= 0
                   ? 0
                   : 1;
    });
    return child.wait() == 0;
}

}  // namespace vqtorture
