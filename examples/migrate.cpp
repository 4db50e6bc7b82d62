// Brings the settings of a service to the layout that this version of it wants, when it starts. All
// steps are one update: other processes see the old layout or the new one, never a mixture, and of
// several processes that start at the same time one does the work.
//
// A process that still has the old values in memory writes them again with its next change. So no key
// of the new layout has the name that a value of the old one had, and old values that come back do no
// harm: the layout's number says that they are of no account. Programs that use the old layout must
// be stopped first.
//
//   migrate STORE|- KEY
//
//   layout 0   "Listen" = "HOST:PORT", "Log" = "error", "info" or "debug"
//   layout 1   Network: "Address" = "HOST", "Port" = dword; "Log" as before
//   layout 2   Network as before; Logging: "Level" = dword
//
// The number of the layout is the dword "Layout" of KEY; without it, 0.
#include <VQRegLib.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "examples/Values.h"

namespace {

using VQRegLib::CRegKey;
using VQRegLib::CRegLib;

// A step looks at everything that it needs before its first change: there is no way back.
using Step = bool (*)(CRegLib& session, CRegKey& key);

bool isDone(int result) {
    return result >= 0;
}

bool remove(CRegLib& session, CRegKey& key, const char* name) {
    const int result = session.VQRegDeleteValue(key, name);
    return isDone(result) || result == VQRegLib::REGLIB_E_NOT_FOUND;
}

std::optional<std::uint16_t> portOf(std::string_view text) {
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(port)
                                                                    : std::nullopt;
}

bool splitListen(CRegLib& session, CRegKey& key) {
    const std::string listen =
        example::text(session, key, "Listen", "0.0.0.0:80").value_or("(not a text)");
    const std::size_t colon = listen.rfind(':');
    const auto port = colon == std::string::npos
                          ? std::nullopt
                          : portOf(std::string_view(listen).substr(colon + 1));
    if (!port) {
        std::fprintf(stderr, "migrate: \"Listen\" is no HOST:PORT: %s\n", listen.c_str());
        return false;
    }
    CRegKey network;
    return isDone(session.VQRegCreateKey(&key, "Network", network, 1)) &&
           isDone(session.VQRegSetValue(network, "Address", listen.substr(0, colon).c_str())) &&
           isDone(session.VQRegSetValue(network, "Port", static_cast<unsigned long>(*port))) &&
           remove(session, key, "Listen");
}

bool numberLogLevels(CRegLib& session, CRegKey& key) {
    constexpr std::array<std::string_view, 3> kLevels = {"error", "info", "debug"};
    const std::string level = example::text(session, key, "Log", "info").value_or("(not a text)");
    const auto found = std::find(kLevels.begin(), kLevels.end(), level);
    if (found == kLevels.end()) {
        std::fprintf(stderr, "migrate: \"Log\" is none of error, info and debug: %s\n",
                     level.c_str());
        return false;
    }
    CRegKey logging;
    const auto number = static_cast<unsigned long>(std::distance(kLevels.begin(), found));
    return isDone(session.VQRegCreateKey(&key, "Logging", logging, 1)) &&
           isDone(session.VQRegSetValue(logging, "Level", number)) && remove(session, key, "Log");
}

constexpr std::array<Step, 2> kSteps = {splitListen, numberLogLevels};

// From the layout that is found to the newest one, step by step.
bool migrate(CRegLib& session, CRegKey& key) {
    const auto found = example::number(session, key, "Layout", 0);
    if (!found) {
        std::fprintf(stderr, "migrate: \"Layout\" is no number\n");
        return false;
    }
    if (*found > kSteps.size()) {
        std::fprintf(stderr, "migrate: layout %u is newer than this program knows\n", *found);
        return false;
    }
    for (std::uint32_t layout = *found; layout < kSteps.size(); ++layout) {
        if (!kSteps[layout](session, key) ||
            !isDone(session.VQRegSetValue(key, "Layout", layout + 1ul))) {
            return false;
        }
        std::printf("layout %u -> %u\n", layout, layout + 1);
    }
    if (*found == kSteps.size()) {
        std::printf("layout %u already\n", *found);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: migrate STORE|- KEY\n");
        return 2;
    }
    CRegLib session(example::storePath(argv[1]), nullptr, CRegLib::eLocationDefault, nullptr);
    VQRegLib::CRegUpdate update(session);
    CRegKey key;
    if (update.result() < 0 || !isDone(session.VQRegCreateKey(nullptr, argv[2], key, 1))) {
        std::fprintf(stderr, "migrate: cannot open the store\n");
        return 1;
    }
    const bool isMigrated = migrate(session, key);
    if (update.end() < 0) {
        std::fprintf(stderr, "migrate: cannot write the store\n");
        return 1;
    }
    session.SendRegistryChangeNotification();
    return isMigrated ? 0 : 1;
}
