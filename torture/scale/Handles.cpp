// Keys that are opened a million times, and a hundred thousand handles on one key.
#include <algorithm>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "scale/Scale.h"
#include "support/WatchedStore.h"

namespace vqtorture {

namespace {

using VQRegLib::CRegKey;
using VQRegLib::CRegLib;
using VQRegLib::REGLIB_E_INVALID_HANDLE;
using VQRegLib::REGLIB_OK;

constexpr char kPath[] = "One/Two/Three/Four/Five/Six";
constexpr double kMostLeft = 64 * 1024;  // bytes, of what a process keeps for its next store

void openOften(CRegLib& session, std::uint64_t times) {
    for (std::uint64_t i = 0; i < times; ++i) {
        CRegKey key;
        requireCode(session.VQRegCreateKey(nullptr, kPath, key, 0), REGLIB_OK, "an opening");
    }
}

// How long the deletion of a key takes, per handle on it.
double deleteUnderHandles(Run& run, std::uint64_t count) {
    const auto session = vqtest::openSession(freshStore(run, "handles" + std::to_string(count)));
    std::deque<CRegKey> held;
    const double before = allocatedBytes();
    for (std::uint64_t i = 0; i < count; ++i) {
        requireCode(session->VQRegCreateKey(nullptr, "Key", held.emplace_back(), 1), REGLIB_OK,
                    "an opening");
    }
    run.highest("bytes_per_handle", (allocatedBytes() - before) / static_cast<double>(count));
    const double seconds = secondsOf([&] {
        requireCode(session->VQRegDeleteKey(*session->RootKey(), "Key"), REGLIB_OK, "a deletion");
    });
    for (CRegKey& handle : held) {
        std::string name;
        requireCode(session->VQRegEnumKeys(handle, 0, name), REGLIB_E_INVALID_HANDLE,
                    "a handle on a key that was deleted");
    }
    run.highest("deletion_ms", seconds * 1000);
    return seconds / static_cast<double>(count);
}

}  // namespace

void opens(Run& run) {
    const std::string path = freshStore(run, "opens");
    { const auto warm = vqtest::openSession(path); }
    const double before = allocatedBytes();
    {
        const auto session = vqtest::openSession(path);
        CRegKey key;
        requireCode(session->VQRegCreateKey(nullptr, kPath, key, 1), REGLIB_OK, "a creation");
        const std::uint64_t tenth = run.count() / 10;
        const double ofTenth = secondsOf([&] { openOften(*session, tenth); });
        const double atTenth = allocatedBytes();
        const double ofAll = secondsOf([&] { openOften(*session, run.count()); });
        const double all = static_cast<double>(run.count());
        requireGrowth(run, "open", ofTenth / static_cast<double>(tenth), ofAll / all);
        run.highest("bytes_per_open", (allocatedBytes() - atTenth) / all);
        run.highest("resident_KiB", residentKibibytes());
    }
    const double left = allocatedBytes() - before;
    run.highest("bytes_left_when_closed", left);
    require(left <= kMostLeft, "a closed store keeps " + std::to_string(left) + " bytes");
}

void handles(Run& run) {
    const double ofTenth = deleteUnderHandles(run, run.count() / 10);
    const double ofAll = deleteUnderHandles(run, run.count());
    requireGrowth(run, "deletion_per_handle", ofTenth, ofAll);
}

}  // namespace vqtorture
