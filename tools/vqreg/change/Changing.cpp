#include "tools/vqreg/change/Changing.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/store/Returning.h"
#include "tools/vqreg/store/StoreFault.h"
#include "tools/vqreg/store/StoreFile.h"
#include "tools/vqreg/store/StoreText.h"
#include "tools/vqreg/terminal/Output.h"
#include "tools/vqreg/text/JsonData.h"
#include "tools/vqreg/text/Path.h"
#include "tools/vqreg/usage/Usage.h"

namespace vqreg {

namespace {

Json sideOf(const Change& change, const std::optional<Value>& value, bool isThere) {
    if (change.isOfKey() && isThere) {
        return {{"type", "key"}};
    }
    return value ? jsonOf(*value) : Json(nullptr);
}

// The place, also as one path: "Network/Port".
Json reportOf(const Change& change, const Path& root) {
    const Json place = jsonOfPlace(change, root);
    const std::string key = plainPath(belowRoot(change.path, root));
    Json json;
    json["path"] = textForJson(change.isOfKey() ? key
                               : key.empty()    ? change.value().name
                                                : key + '/' + change.value().name);
    json.update(place);
    json["before"] = sideOf(change, change.before, change.kind == Change::eKind::eDeleted);
    json["after"] = sideOf(change, change.after, change.kind == Change::eKind::eCreated);
    return json;
}

Json reportOf(const std::vector<Change>& changes, const Path& root) {
    Json json = Json::array();
    for (const Change& change : changes) {
        json.push_back(reportOf(change, root));
    }
    return json;
}

// What is not below the root key has its whole path: without it, nobody could tell where that is.
std::string nameOf(const Change& change, const Path& root) {
    const Path path = isSameOrBelow(change.path, root) ? belowRoot(change.path, root) : change.path;
    return change.isOfKey() ? nameOfKey(path) : nameOfValue(path, change.value().name);
}

bool isNewStore(const StoreOptions& options) {
    const std::string root = rootName(options);
    const auto text = readStoreFileIfAny(storeFile(options), root);
    return !text || !hasRootKey(*text, root);
}

}  // namespace

void addJsonOption(CLI::App& command, ReportOptions& options) {
    command.add_flag("--json", options.json, "Print what has been changed as JSON");
}

void addVerifyOption(CLI::App& command, ReportOptions& options) {
    command
        .add_option("--verify", options.verifySeconds,
                    "Look for so many seconds whether something that was deleted returns")
        ->type_name("S")
        ->check(secondsRule());
}

std::vector<Change> createdKeys(StoreSession& store, const Path& path) {
    std::vector<Change> created;
    for (std::size_t size = path.size(); size > 0; --size) {
        Path key(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(size));
        if (store.hasKey(key)) {
            break;
        }
        created.insert(created.begin(), {Change::eKind::eCreated, std::move(key), {}, {}});
    }
    return created;
}

void reportChanges(Context& context, const ReportOptions& options, const Path& above,
                   const std::vector<Change>& changes, bool isChanged) {
    std::vector<Change> returned;
    if (options.verifySeconds) {
        returned = waitForReturn(storeFile(context.store), above, changes, *options.verifySeconds);
    }
    // Paths that begin at the top of the file are told from the root key on all the same.
    const Path root = above.empty() ? rootPath(context.store) : Path();
    for (const Change& change : returned) {
        note(nameOf(change, root) + " has returned");
        context.exitCode = static_cast<int>(eExit::eNegative);
    }
    if (options.json) {
        Json json{{"changed", isChanged}, {"changes", reportOf(changes, root)}};
        if (options.verifySeconds) {
            json["returned"] = reportOf(returned, root);
        }
        Output::standard().json(json);
    }
}

Changing::Changing(Context& context, const ReportOptions& options, eDeletes deletes)
    : m_context(context), m_options(options) {
    if (context.batch) {
        if (options.json || options.verifySeconds) {
            throw CommandError(eExit::eUsage, "--json and --verify are not for single lines");
        }
        return;
    }
    if (deletes == eDeletes::eMaybe) {
        m_others = processesWith(storeFile(context.store));
    }
    if (options.json && context.store.create && isNewStore(context.store)) {
        record({Change::eKind::eCreated, {}, {}, {}});
    }
    m_session.emplace(context.store);
}

Changing::~Changing() = default;

void Changing::begin() {
    store().begin();
    m_isBegun = true;
}

void Changing::record(const std::vector<Change>& changes) {
    m_changes.insert(m_changes.end(), changes.begin(), changes.end());
}

void Changing::print(const std::string& text) {
    m_output += text;
}

void Changing::tell(const std::string& remark) {
    m_remarks.push_back(remark);
}

void Changing::warn() {
    if (!std::exchange(m_isWarned, true)) {
        warnOfReturn(m_others);
    }
}

void Changing::write() {
    if (deletesAny(m_changes)) {
        warn();
    }
    if (std::exchange(m_isBegun, false)) {
        store().end();
    }
    if (Batch* const batch = m_context.batch) {
        batch->changes.insert(batch->changes.end(), m_changes.begin(), m_changes.end());
        batch->output += m_output;
        batch->remarks.insert(batch->remarks.end(), m_remarks.begin(), m_remarks.end());
    }
    m_session.reset();
}

void Changing::report() {
    if (m_context.batch) {
        return;
    }
    for (const std::string& remark : m_remarks) {
        note(remark);
    }
    Output::standard().write(m_output);
    reportChanges(m_context, m_options, rootPath(m_context.store), m_changes, !m_changes.empty());
}

void Changing::finish() {
    write();
    report();
}

}  // namespace vqreg
