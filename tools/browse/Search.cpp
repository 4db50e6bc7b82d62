#include "tools/browse/Search.h"

#include "tools/vqreg/text/DataText.h"

namespace vqreg {

namespace {

// Walks once over all places. Before the present one is what counts when nothing behind it is found; in
// the other direction it is the same with the last instead of the first.
class Walk {
public:
    Walk(const Place& present, const std::string& text, bool forward)
        : m_present(present), m_text(folded(text)), m_forward(forward) {}

    void visitKey(const Key& key, Path& path) {
        visit(path, nullptr, key.name);
        for (const auto& each : key.values) {
            visit(path, &each.second, each.second.name);
        }
        for (const auto& each : key.keys) {
            path.push_back(each.second.name);
            visitKey(each.second, path);
            path.pop_back();
        }
    }

    std::optional<Place> found() const {
        return m_forward ? (m_behind ? m_behind : m_before) : (m_before ? m_before : m_behind);
    }

private:
    bool isPresent(const Path& path, const Value* value) const {
        return path == m_present.path && (value != nullptr) == m_present.value.has_value() &&
               (!value || value->name == *m_present.value);
    }

    bool holds(const std::string& name) const {
        return folded(name).find(m_text) != std::string::npos;
    }

    void visit(const Path& path, const Value* value, const std::string& name) {
        const bool isHere = isPresent(path, value);
        // The present place itself is the last one of either direction.
        const bool isBehind = m_isBehind || (isHere && !m_forward);
        m_isBehind = m_isBehind || isHere;
        std::optional<Place>& found = isBehind ? m_behind : m_before;
        if ((found && m_forward) || !(holds(name) || (value && holds(dataText(*value))))) {
            return;
        }
        found = Place{path, value ? std::optional(value->name) : std::nullopt};
    }

    const Place& m_present;
    const std::string m_text;
    const bool m_forward;
    bool m_isBehind = false;
    std::optional<Place> m_before;
    std::optional<Place> m_behind;
};

}  // namespace

std::optional<Place> findNext(const Key& root, const Place& present, const std::string& text,
                              bool forward) {
    Walk walk(present, text, forward);
    Path path;
    walk.visitKey(root, path);
    return walk.found();
}

}  // namespace vqreg
