#include "tools/browse/Browser.h"

#include <fmt/format.h>

#include "tools/vqreg/base/ExitCode.h"

namespace vqreg {

namespace {

constexpr std::size_t kMostPending = 1000;
constexpr const char* kGivenUp = "given up; nothing has been changed";

}  // namespace

Browser::Browser(std::string rootName, Path rootPath)
    : m_rootName(std::move(rootName)), m_rootPath(std::move(rootPath)) {}

void Browser::show(const ConfigText& text) {
    if (const Finding* const fault = text.firstError()) {
        m_malformed = fmt::format("the file is malformed, line {}: {}", fault->line, fault->what);
        tellFault();
        return;
    }
    if (!std::exchange(m_malformed, {}).empty()) {
        tellFault();
    }
    const Key* const found = findKey(text.top, m_rootPath);
    Key root = found ? *found : Key();
    root.name = m_rootPath.empty() ? "/" : m_rootPath.back();
    static const std::vector<Change> kNone;
    const std::vector<Change> others =
        m_contents.replace(std::move(root), m_writing ? m_writing->edit.changes : kNone);
    if (!m_isShown) {
        m_isShown = true;
        m_contents.clearMarks();
    } else {
        tellChanged(others);
    }
}

void Browser::setTrouble(const std::string& trouble) {
    if (m_trouble != trouble) {
        m_trouble = trouble;
        tellFault();
    }
}

// Where there is none any more, what was said of it is taken back.
void Browser::tellFault() {
    const std::string now = fault().empty() ? "" : fault() + "; this is how it was before";
    const std::string before = std::exchange(m_toldFault, now);
    if (!now.empty() || m_message == before) {
        m_message = now;
    }
}

void Browser::tellChanged(const std::vector<Change>& others) {
    if (others.empty()) {
        return;
    }
    // Keys are meant for what was seen when they were typed.
    m_isDropped = m_isDropped || !m_pending.empty();
    m_pending.clear();
    m_message = "changed by others: " + lineOf(others.front(), {m_contents.root().name});
    if (others.size() > 1) {
        m_message += fmt::format(" and {} more", others.size() - 1);
    }
    if (m_edited && m_dialog.isOpen()) {
        const auto& [path, value] = *m_edited;
        if (const auto stale = staleness(m_contents.root(), setValue(path, value, value))) {
            m_message = "changed meanwhile: " + *stale;
        }
    }
}

void Browser::setHeight(std::size_t height) {
    m_height = height > 0 ? height : 1;
    m_contents.scroll(m_height);
}

// As it is now: whoever is asked must not be told of a program that has ended since the status was drawn, or
// of none where one has begun.
std::string Browser::returning() const {
    const std::string openers = m_openers ? m_openers() : std::string();
    return openers.empty() ? openers : " comes back with the next change of " + openers + ".";
}

void Browser::type(const Keystroke& key) {
    if (!isWriting() && !m_ordered) {
        take(key);
    } else if (key.key == eKey::eEscape) {
        giveUp();
    } else if (m_pending.size() < kMostPending) {
        m_pending.push_back(key);
    }
}

void Browser::giveUp() {
    m_pending.clear();
    if (m_ordered) {
        m_ordered.reset();
        m_message = kGivenUp;
    } else {
        m_cancel = true;
        m_isCancelled = true;
    }
}

std::string Browser::waitText() const {
    const std::size_t count = m_pending.size();
    return "writing; Esc gives it up" +
           (count == 0 ? std::string()
                       : fmt::format("; {} key{} wait{}{}", count, count == 1 ? "" : "s",
                                     count == 1 ? "s" : "",
                                     count == kMostPending ? ", and no more are kept" : ""));
}

// No command, and no answer but a text.
void Browser::takePasted(const Keystroke& key) {
    if (!m_dialog.isText()) {
        m_message = "a pasted text is taken only where a text is asked for";
    } else if (!m_dialog.takePart(key)) {
        m_message = "line ends and control characters of the pasted text are left out";
    }
}

void Browser::take(const Keystroke& key) {
    if (key.isPasted) {
        takePasted(key);
        return;
    }
    if (m_isHelpShown) {
        m_isHelpShown = false;
        return;
    }
    m_message.clear();
    if (m_dialog.isOpen()) {
        if (m_dialog.take(key)) {
            m_message = "nothing has been changed";
        }
        if (!m_dialog.isOpen()) {
            m_edited.reset();
        }
        m_contents.scroll(m_height);
        return;
    }
    if (!takeMove(key) && !takeSide(key) && !takeEdit(key)) {
        takeOther(key);
    }
    m_contents.scroll(m_height);
}

std::optional<std::string> Browser::refusalOf(const Work& work) const {
    // What others have put in the place of something that is brought back is asked about.
    const Key nothing;
    return refusal(m_rootName, work.isUndo ? nothing : m_contents.root(), work.edit);
}

bool Browser::order(Work work) {
    if (const auto broken = refusalOf(work)) {
        m_message = *broken;
        return false;
    }
    m_ordered = std::move(work);
    return true;
}

std::optional<Edit> Browser::takeOrder() {
    if (!m_ordered) {
        return std::nullopt;
    }
    m_writing = std::move(m_ordered);
    m_ordered.reset();
    m_isCancelled = false;
    m_isDropped = false;
    return m_writing->edit;
}

void Browser::takePending() {
    while (!m_pending.empty() && !m_ordered) {
        const Keystroke key = m_pending.front();
        m_pending.pop_front();
        take(key);
        if (m_dialog.isOpen() && m_dialog.isYes()) {
            m_pending.clear();  // a yes is for a question that has been seen
        }
    }
}

void Browser::tellEnd(int code, const std::string& message) {
    Work work = std::move(*m_writing);
    m_writing.reset();
    // One that was given up may have been made just then.
    const bool isMade =
        code == 0 || (code < 0 && !staleness(m_contents.root(), undoing(work.edit)));
    if (isMade) {
        m_message = "done: " + work.edit.what;
        if (m_isDropped) {
            m_message += "; the keys typed meanwhile are dropped: others have changed the store";
        }
        work.isUndo ? m_done.pop_back() : m_done.push_back(std::move(work.edit));
        takePending();
        return;
    }
    m_pending.clear();  // they were typed for what has not come to be
    m_message =
        m_isCancelled && code < 0 ? kGivenUp
        : code < 0
            ? fmt::format(
                  "the process that writes was ended by signal {}; nothing has been changed", -code)
            : message;
    if (code != static_cast<int>(eExit::eNegative)) {
        return;
    }
    const std::optional<Edit> again = work.again(m_contents.root());
    if (!again) {
        m_message += "; nothing is left to do";
        if (work.isUndo) {
            m_done.pop_back();
        }
        return;
    }
    m_dialog.askYes(message, "; go on all the same?", [this, work, again] {
        order({*again, work.again, work.isUndo});
    });
    m_message.clear();
}

}  // namespace vqreg
