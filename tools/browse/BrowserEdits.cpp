// The part of the browser that changes something.
#include <fmt/format.h>

#include "tools/browse/Browser.h"
#include "tools/vqreg/base/ExitCode.h"
#include "tools/vqreg/text/DataText.h"
#include "tools/vqreg/text/Rules.h"
#include "tools/vqreg/text/Shown.h"

namespace vqreg {

using VQRegLib::CRegLib;

namespace {

constexpr const char* kTypes = "sdb";
constexpr const char* kTypeAnswers = " (s)tring, (d)word, (b)inary ";

CRegLib::eDataType typeOf(const std::string& letter) {
    return letter == "s" ? CRegLib::eString : letter == "d" ? CRegLib::eDword : CRegLib::eBinary;
}

std::optional<Value> valueAt(const Key& root, const Path& path, const std::string& name) {
    const Key* const key = findKey(root, path);
    if (!key) {
        return std::nullopt;
    }
    const auto found = key->values.find(folded(name));
    return found == key->values.end() ? std::nullopt : std::optional(found->second);
}

std::optional<Key> keyAt(const Key& root, const Path& path) {
    const Key* const key = findKey(root, path);
    return key ? std::optional(*key) : std::nullopt;
}

}  // namespace

void Browser::editValue() {
    const Value* const value = m_contents.value();
    if (!value) {
        m_message = "choose a value first: Tab goes to the values";
        return;
    }
    m_edited = {m_contents.path(), *value};
    askData(m_contents.path(), *value, *value);
}

// The value that is wanted has its name and type.
void Browser::askData(const Path& path, const std::optional<Value>& before, Value wanted) {
    const std::string label =
        fmt::format("{} ({}): ", printable(wanted.name), typeName(wanted.type));
    const std::string text = before ? dataText(*before) : "";
    m_dialog.askText(label, text, [this, path, before, wanted](const std::string& data) {
        return acceptData(path, before, wanted, data);
    });
}

bool Browser::acceptData(const Path& path, const std::optional<Value>& before, Value wanted,
                         const std::string& data) {
    try {
        wanted.number = 0;
        wanted.bytes.clear();
        parseTyped(data, wanted);
    } catch (const CommandError& error) {
        m_message = error.what();
        return false;
    }
    if (before && before->sameData(wanted)) {
        m_message = "nothing has been changed";
        return true;
    }
    const Making again = [path, wanted](const Key& root) -> std::optional<Edit> {
        const auto now = valueAt(root, path, wanted.name);
        return now && now->sameData(wanted) ? std::nullopt
                                            : rebased(setValue(path, now, wanted), root);
    };
    return order({setValue(path, before, wanted), again});
}

void Browser::changeType() {
    const Value* const value = m_contents.value();
    if (!value) {
        m_message = "choose a value first: Tab goes to the values";
        return;
    }
    m_dialog.askKey("Type:", kTypeAnswers, kTypes,
                    [this, path = m_contents.path(), value = *value](const std::string& letter) {
                        Value wanted = value;
                        wanted.type = typeOf(letter);
                        m_edited = {path, value};
                        askData(path, value, wanted);
                        return true;
                    });
}

void Browser::addValue() {
    const Path path = m_contents.path();
    m_dialog.askText("Name of the new value: ", "", [this, path](const std::string& name) {
        Value value;
        value.name = name;
        value.type = CRegLib::eDword;
        // What is wrong with the name is told before the data are asked for.
        if (const auto broken = refusal(m_rootName, m_contents.root(), setValue(path, {}, value))) {
            m_message = *broken;
            return false;
        }
        m_dialog.askKey("Type:", kTypeAnswers, kTypes,
                        [this, path, value](const std::string& letter) {
                            Value wanted = value;
                            wanted.type = typeOf(letter);
                            m_edited.reset();
                            askData(path, std::nullopt, wanted);
                            return true;
                        });
        return true;
    });
}

void Browser::addKey() {
    const Path path = m_contents.path();
    const std::string label = path.empty()
                                  ? "Name of the new key: "
                                  : "Name of the new key below " + printable(joinPath(path)) + ": ";
    m_dialog.askText(label, "", [this, path](const std::string& name) {
        const Edit edit = createKey(joined(path, {name}));
        return order({edit, [edit](const Key& root) { return rebased(edit, root); }});
    });
}

void Browser::rename() {
    if (const Value* const value = m_contents.value()) {
        renameValueOf(m_contents.path(), *value);
    } else if (m_contents.path().empty()) {
        m_message = "the root key keeps its name";
    } else {
        renameKeyAt(m_contents.path());
    }
}

void Browser::renameValueOf(const Path& path, const Value& value) {
    m_dialog.askText(
        "New name of the value: ", value.name, [this, path, value](const std::string& name) {
            if (name == value.name) {
                m_message = "nothing has been changed";
                return true;
            }
            const Making again = [=](const Key& root) {
                const auto now = valueAt(root, path, value.name);
                return now ? std::optional(renameValue(path, *now, name)) : std::nullopt;
            };
            return orderRenaming({renameValue(path, value, name), again});
        });
}

void Browser::renameKeyAt(const Path& path) {
    m_dialog.askText("New name of the key: ", path.back(), [this, path](const std::string& name) {
        if (name == path.back()) {
            m_message = "nothing has been changed";
            return true;
        }
        const Making again = [=](const Key& root) {
            const auto now = keyAt(root, path);
            return now ? std::optional(renameKey(path, *now, name)) : std::nullopt;
        };
        const auto edit = again(m_contents.root());
        if (!edit) {
            m_message = nameOfKey(path) + " is gone";
            return true;
        }
        return orderRenaming({*edit, again});
    });
}

// The old name is deleted, which others undo without knowing it.
bool Browser::orderRenaming(Work work) {
    const std::string returning = refusalOf(work) ? std::string() : this->returning();
    if (returning.empty()) {
        return order(std::move(work));
    }
    const std::string what = work.edit.what;
    m_dialog.askYes("R" + what.substr(1), "? The old name" + returning,
                    [this, work] { order(work); });
    return true;
}

void Browser::remove() {
    const Path path = m_contents.path();
    const Value* const value = m_contents.value();
    if (!value && path.empty()) {
        m_message = "the root key stays";
        return;
    }
    Making again;
    std::string what;
    std::string more;
    if (value) {
        what = nameOfValue(path, value->name);
        again = [path, name = value->name](const Key& root) {
            const auto now = valueAt(root, path, name);
            return now ? std::optional(deleteValue(path, *now)) : std::nullopt;
        };
    } else {
        const Count count = countBelow(m_contents.key());
        what = nameOfKey(path);
        if (count.keys + count.values > 0) {
            more = " with " + countText(count) + " below it";
        }
        again = [path](const Key& root) {
            const auto now = keyAt(root, path);
            return now ? std::optional(deleteKey(path, *now)) : std::nullopt;
        };
    }
    // What is shown now is what the question is about.
    const Edit edit = *again(m_contents.root());
    const std::string returning = this->returning();
    m_dialog.askYes("Delete " + what, more + "?" + (returning.empty() ? "" : " It" + returning),
                    [this, edit, again] {
                        order({edit, again});
                    });
}

void Browser::undo() {
    if (m_done.empty()) {
        m_message = "nothing to undo";
        return;
    }
    const Edit edit = undoing(m_done.back());
    order({edit, [edit](const Key& root) { return rebased(edit, root); }, true});
}

}  // namespace vqreg
