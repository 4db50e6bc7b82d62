// Stores of many keys, of one key with many values, and of keys as deep as a line allows.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "scale/Scale.h"
#include "support/WatchedStore.h"

namespace vqtorture {

namespace {

using VQRegLib::CRegKey;
using VQRegLib::CRegLib;
using VQRegLib::CRegUpdate;
using VQRegLib::REGLIB_E_NO_MORE_ITEMS;
using VQRegLib::REGLIB_E_NOT_FOUND;
using VQRegLib::REGLIB_OK;

// In the order of the numbers, also by bytes.
std::string nameOf(std::uint64_t number) {
    char name[32];
    std::snprintf(name, sizeof name, "Name%08llu", static_cast<unsigned long long>(number));
    return name;
}

// Seconds per item of what is done to a store of so many.
struct Costs {
    double make = 0;
    double load = 0;
    double query = 0;
    double list = 0;
    double remove = 0;
};

void requireGrowths(Run& run, const char* of, const Costs& tenth, const Costs& all) {
    const std::array<std::pair<const char*, double Costs::*>, 5> costs = {
        {{"make", &Costs::make},
         {"load", &Costs::load},
         {"query", &Costs::query},
         {"list", &Costs::list},
         {"remove", &Costs::remove}}};
    for (const auto& [name, cost] : costs) {
        if (all.*cost > 0) {
            requireGrowth(run, std::string(of) + "_" + name, tenth.*cost, all.*cost);
        }
    }
}

// Calls `work` for each of the keys that hold so many in all, with how many are in it.
template <typename Work>
void forEachGroup(CRegLib& session, std::uint64_t count, std::uint64_t inGroup, Work work) {
    for (std::uint64_t begin = 0; begin < count; begin += inGroup) {
        CRegKey group;
        requireCode(session.VQRegCreateKey(nullptr, nameOf(begin).c_str(), group, 1), REGLIB_OK,
                    "a creation");
        work(group, std::min(inGroup, count - begin));
    }
}

void makeKeys(CRegLib& session, CRegKey& group, std::uint64_t count) {
    for (std::uint64_t i = 0; i < count; ++i) {
        CRegKey key;
        requireCode(session.VQRegCreateKey(&group, nameOf(i).c_str(), key, 1), REGLIB_OK,
                    "a creation");
    }
}

void listKeys(CRegLib& session, CRegKey& group, std::uint64_t count) {
    std::string name;
    for (std::uint64_t i = 0; i < count; ++i) {
        requireCode(session.VQRegEnumKeys(group, static_cast<int>(i), name), REGLIB_OK,
                    "an enumeration");
        require(name == nameOf(i), "key " + std::to_string(i) + " is " + name);
    }
    requireCode(session.VQRegEnumKeys(group, static_cast<int>(count), name), REGLIB_E_NO_MORE_ITEMS,
                "the end of an enumeration");
}

Costs playKeys(Run& run, std::uint64_t count, std::uint64_t inGroup) {
    const std::string path = freshStore(run, "keys" + std::to_string(count));
    Costs costs;
    {
        const auto session = vqtest::openSession(path);
        costs.make = secondsOf([&] {
            CRegUpdate update(*session);
            forEachGroup(*session, count, inGroup, [&](CRegKey& group, std::uint64_t some) {
                makeKeys(*session, group, some);
            });
            requireCode(update.end(), REGLIB_OK, "the end of an update");
        });
    }
    std::unique_ptr<CRegLib> session;
    const double before = residentKibibytes();
    costs.load = secondsOf([&] { session = vqtest::openSession(path); });
    run.highest("resident_bytes_per_key",
                (residentKibibytes() - before) * 1024 / static_cast<double>(count));
    costs.list = secondsOf([&] {
        forEachGroup(*session, count, inGroup,
                     [&](CRegKey& group, std::uint64_t some) { listKeys(*session, group, some); });
    });
    for (double* const cost : {&costs.make, &costs.load, &costs.list}) {
        *cost /= static_cast<double>(count);
    }
    return costs;
}

void setAll(CRegLib& session, CRegKey& key, std::uint64_t count) {
    CRegUpdate update(session);
    for (std::uint64_t i = 0; i < count; ++i) {
        requireCode(session.VQRegSetValue(key, nameOf(i).c_str(), static_cast<unsigned long>(i)),
                    REGLIB_OK, "a set");
    }
    requireCode(update.end(), REGLIB_OK, "the end of an update");
}

void queryAll(CRegLib& session, CRegKey& key, std::uint64_t count) {
    for (std::uint64_t i = 0; i < count; ++i) {
        std::uint32_t number = 0;
        unsigned long size = sizeof number;
        CRegLib::eDataType type = CRegLib::eNone;
        requireCode(session.VQRegQueryValue(key, nameOf(i).c_str(), type,
                                            reinterpret_cast<unsigned char*>(&number), &size),
                    REGLIB_OK, "a query");
        require(number == i, "value " + std::to_string(i) + " is " + std::to_string(number));
    }
}

void listValues(CRegLib& session, CRegKey& key, std::uint64_t count) {
    std::string name;
    CRegLib::eDataType type = CRegLib::eNone;
    for (std::uint64_t i = 0; i < count; ++i) {
        requireCode(session.VQRegEnumValues(key, static_cast<int>(i), name, type), REGLIB_OK,
                    "an enumeration");
        require(name == nameOf(i) && type == CRegLib::eDword, "an enumeration tells " + name);
    }
}

void removeAll(CRegLib& session, CRegKey& key, std::uint64_t count) {
    CRegUpdate update(session);
    for (std::uint64_t i = 0; i < count; ++i) {
        requireCode(session.VQRegDeleteValue(key, nameOf(i).c_str()), REGLIB_OK, "a deletion");
    }
    requireCode(update.end(), REGLIB_OK, "the end of an update");
    requireCode(session.VQRegDeleteValue(key, nameOf(0).c_str()), REGLIB_E_NOT_FOUND,
                "a second deletion");
}

Costs playValues(Run& run, std::uint64_t count) {
    const std::string path = freshStore(run, "values" + std::to_string(count));
    Costs costs;
    {
        const auto session = vqtest::openSession(path);
        costs.make = secondsOf([&] { setAll(*session, *session->RootKey(), count); });
    }
    std::unique_ptr<CRegLib> session;
    costs.load = secondsOf([&] { session = vqtest::openSession(path); });
    CRegKey& key = *session->RootKey();
    costs.query = secondsOf([&] { queryAll(*session, key, count); });
    costs.list = secondsOf([&] { listValues(*session, key, count); });
    costs.remove = secondsOf([&] { removeAll(*session, key, count); });
    for (double* const cost :
         {&costs.make, &costs.load, &costs.query, &costs.list, &costs.remove}) {
        *cost /= static_cast<double>(count);
    }
    return costs;
}

// Keys called "a", one in the other.
std::string deepPath(std::uint64_t levels) {
    std::string path = "a";
    for (std::uint64_t i = 1; i < levels; ++i) {
        path += "/a";
    }
    return path;
}

// A value at the end of a path of so many levels survives the file. The cost of an opening, per byte of the
// full names that it notes: each level has one, and is as deep as its name is long.
double openDeep(Run& run, std::uint64_t levels) {
    const std::string file = freshStore(run, "deep" + std::to_string(levels));
    const std::string path = deepPath(levels);
    {
        const auto session = vqtest::openSession(file);
        CRegKey key;
        requireCode(session->VQRegCreateKey(nullptr, path.c_str(), key, 1), REGLIB_OK,
                    "the creation of a deep key");
        requireCode(session->VQRegSetValue(key, "Deep", levels), REGLIB_OK, "a set");
    }
    const auto session = vqtest::openSession(file);
    require(session->RootKey() != nullptr, "a deep file cannot be read");
    const double seconds = secondsOf([&] {
        for (std::uint64_t i = 0; i < run.count(); ++i) {
            CRegKey key;
            requireCode(session->VQRegCreateKey(nullptr, path.c_str(), key, 0), REGLIB_OK,
                        "the opening of a deep key");
            std::string name;
            CRegLib::eDataType type = CRegLib::eNone;
            requireCode(session->VQRegEnumValues(key, 0, name, type), REGLIB_OK, "its value");
            require(name == "Deep", "its value is " + name);
        }
    });
    return seconds / static_cast<double>(levels * levels * run.count());
}

}  // namespace

void keys(Run& run) {
    constexpr std::uint64_t kInGroup = 1000;
    const Costs tenth = playKeys(run, run.count() / 10, kInGroup);
    requireGrowths(run, "key", tenth, playKeys(run, run.count(), kInGroup));
}

void siblings(Run& run) {
    const std::uint64_t tenth = run.count() / 10;
    const Costs ofTenth = playKeys(run, tenth, tenth);
    requireGrowths(run, "sibling", ofTenth, playKeys(run, run.count(), run.count()));
}

void values(Run& run) {
    const Costs tenth = playValues(run, run.count() / 10);
    requireGrowths(run, "value", tenth, playValues(run, run.count()));
}

// A line of the file has up to 2047 bytes: "[Velquist", "/a" for each level, and "]".
void nesting(Run& run) {
    constexpr std::uint64_t kLevels = (2047 - 10) / 2;
    const double tenth = openDeep(run, kLevels / 10);
    requireGrowth(run, "byte_of_a_name", tenth, openDeep(run, kLevels));
    run.highest("levels", kLevels);
}

}  // namespace vqtorture
