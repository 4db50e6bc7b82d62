// vqreg info: where the store is and how it is.
#include <sys/stat.h>

#include <cerrno>
#include <memory>

#include "portable/FileSystem.h"
#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/base/FileFacts.h"
#include "tools/vqreg/commands/CommandTable.h"
#include "tools/vqreg/store/LockInfo.h"
#include "tools/vqreg/store/OpenIn.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreText.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

namespace {

struct Facts {
    std::string given;
    std::string file;  // behind the links in the place of the given one
    std::string why;
    enum class eState { ePresent, eEmpty, eMissing } state = eState::ePresent;
    struct stat status {};
    std::optional<struct stat> backup;
    const char* network = nullptr;    // the file system, where other machines may have it, too
    std::optional<std::string> hint;  // there is a text, but not where it should be
    Count count;
    std::optional<std::uint64_t> stamp;
    std::optional<LockHolder> holder;
    Openers openers;
    std::vector<OpenIn> older;
    std::size_t alive = 0;
    std::size_t stale = 0;
    std::optional<Finding> fault;
};

constexpr const char* stateName(Facts::eState state) {
    return state == Facts::eState::eMissing ? "missing"
           : state == Facts::eState::eEmpty ? "empty"
                                            : "present";
}

std::string reasonFor(const StoreOptions& options, const std::string& file) {
    if (options.file) {
        return "given with --file";
    }
    return file.starts_with("/velquist/") ? "default, /velquist/etc exists"
                                          : "default, /velquist/etc does not exist";
}

void readText(Facts& facts, const StoreOptions& options) {
    const std::string text = readStoreFile(facts.file, rootName(options));
    facts.state = text.empty() ? Facts::eState::eEmpty : Facts::eState::ePresent;
    const ConfigText config = parseConfigText(text);
    facts.count = countBelow(config.top);
    if (const Finding* const fault = config.firstError()) {
        facts.fault = *fault;
    }
}

// The library is not asked: it would wait for the lock, and what stands in the way is what a person
// may want to know.
Facts gather(const StoreOptions& options) {
    Facts facts;
    facts.given = givenFile(options);
    facts.file = storeFile(options);
    facts.why = reasonFor(options, facts.given);
    struct stat backup {};
    if (::lstat((facts.file + ".bak").c_str(), &backup) == 0) {
        facts.backup = backup;
    }
    const bool isMissing = ::lstat(facts.file.c_str(), &facts.status) != 0 && errno == ENOENT;
    facts.state = isMissing ? Facts::eState::eMissing : Facts::eState::ePresent;
    facts.hint = lostTextHint(facts.file);
    if (!isMissing || !facts.hint) {
        readText(facts, options);
    }
    facts.network = VQRegLib::networkFileSystem(facts.file);
    facts.stamp = changeStamp(facts.file);
    facts.holder = lockHolder(facts.file);
    facts.openers = processesWith(facts.file);
    facts.older = olderProcessesWith(facts.file);
    for (const NotificationSemaphore& semaphore : notificationSemaphores()) {
        ++(semaphore.isAlive ? facts.alive : facts.stale);
    }
    return facts;
}

Json jsonOf(const std::vector<OpenIn>& processes) {
    Json json = Json::array();
    for (const OpenIn& process : processes) {
        json.push_back(Json{{"pid", process.pid}, {"program", process.program}});
    }
    return json;
}

template <typename Line>
void printStatus(const Facts& facts, const Line& line) {
    line("owner", userName(facts.status.st_uid) + ":" + groupName(facts.status.st_gid));
    line("mode", modeText(facts.status.st_mode));
    line("size", fmt::format("{} bytes", facts.status.st_size));
    line("modified", localTime(facts.status.st_mtime));
}

std::string backupText(const Facts& facts) {
    if (!facts.backup) {
        return "none";
    }
    const std::string path = printable(facts.file) + ".bak";
    return S_ISREG(facts.backup->st_mode)
               ? fmt::format("{}, {} bytes, {}", path, facts.backup->st_size,
                             localTime(facts.backup->st_mtime))
               : path + " " + notAFile(facts.backup->st_mode);
}

Json backupJson(const Facts& facts) {
    if (!facts.backup) {
        return nullptr;
    }
    const struct stat& status = *facts.backup;
    Json json{{"file", facts.file + ".bak"}, {"size", nullptr}, {"modified", nullptr}};
    if (S_ISREG(status.st_mode)) {
        json["size"] = status.st_size;
        json["modified"] = status.st_mtime;
    } else {
        json["fault"] = notAFile(status.st_mode);
    }
    return json;
}

void printText(const Facts& facts) {
    Output& output = Output::standard();
    const auto line = [&](std::string_view name, const std::string& text) {
        std::string padded(name);
        padded.append(15 - name.size(), ' ');
        output.line(output.styled(eStyle::eName, padded) + text);
    };
    line("file", printable(facts.given));
    if (facts.file != facts.given) {
        line("real file", printable(facts.file));
    }
    line("why", facts.why);
    if (facts.hint) {
        line("state", *facts.hint);
    }
    if (facts.state != Facts::eState::eMissing) {
        printStatus(facts, line);
    }
    if (facts.network) {
        line("file system", fmt::format("{}: lock and change stamp are this machine's alone, other "
                                        "machines must not use the store",
                                        facts.network));
    }
    line("backup", backupText(facts));
    line("keys", std::to_string(facts.count.keys));
    line("values", std::to_string(facts.count.values));
    line("change stamp", facts.stamp ? std::to_string(*facts.stamp) : "none");
    line("lock", facts.holder ? "held by " + facts.holder->text() : "free");
    line("open in", facts.openers.text());
    if (!facts.older.empty()) {
        line("older library", "in " + listOf(facts.older) + ": restart, or changes get lost");
    }
    line("notification", fmt::format("{} alive, {} stale", facts.alive, facts.stale));
}

void printJson(const Facts& facts) {
    Json json{{"file", facts.given},
              {"realFile", facts.file},
              {"why", facts.why},
              {"state", stateName(facts.state)}};
    json["hint"] = facts.hint ? Json(*facts.hint) : Json(nullptr);
    for (const char* const name : {"owner", "group", "mode", "size", "modified"}) {
        json[name] = nullptr;
    }
    if (facts.state != Facts::eState::eMissing) {
        json["owner"] = userName(facts.status.st_uid);
        json["group"] = groupName(facts.status.st_gid);
        json["mode"] = modeText(facts.status.st_mode);
        json["size"] = facts.status.st_size;
        json["modified"] = facts.status.st_mtime;
    }
    json["networkFileSystem"] = facts.network ? Json(facts.network) : Json(nullptr);
    json["backup"] = backupJson(facts);
    json["keys"] = facts.count.keys;
    json["values"] = facts.count.values;
    json["stamp"] = facts.stamp ? Json(std::to_string(*facts.stamp)) : Json(nullptr);
    json["lock"] = nullptr;
    if (facts.holder) {
        json["lock"] = Json{{"pid", facts.holder->pid}, {"since", facts.holder->since}};
    }
    json["openIn"] = jsonOf(facts.openers.processes);
    json["openInHidden"] = facts.openers.hidden;
    json["olderLibrary"] = jsonOf(facts.older);
    json["semaphores"] = Json{{"alive", facts.alive}, {"stale", facts.stale}};
    Output::standard().json(json);
}

void info(bool json, const Context& context) {
    const Facts facts = gather(context.store);
    if (json) {
        printJson(facts);
    } else {
        printText(facts);
    }
    if (facts.state == Facts::eState::eMissing) {
        throw CommandError(eExit::eUnavailable, facts.file + ": " + *facts.hint);
    }
    if (facts.fault) {
        throw CommandError(eExit::eMalformed, format(facts.file, *facts.fault));
    }
}

}  // namespace

void defineInfo(CLI::App& command, Context& context) {
    const auto json = std::make_shared<bool>(false);
    command.add_flag("--json", *json, "As JSON; times are seconds since 1970");
    command.callback([json, &context] { info(*json, context); });
}

}  // namespace vqreg
