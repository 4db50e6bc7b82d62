// What the keys do. Knows no screen, no process and no file: the loop brings what happens and takes the
// orders.
#ifndef TOOLS_BROWSE_BROWSER_H
#define TOOLS_BROWSE_BROWSER_H

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/browse/Contents.h"
#include "tools/browse/Dialog.h"
#include "tools/browse/Edits.h"
#include "tools/browse/Keystroke.h"
#include "tools/vqreg/text/ConfigText.h"

namespace vqreg {

class Browser {
public:
    // The name of the root key, and its path from the top of the file.
    Browser(std::string rootName, Path rootPath);

    // A text of the file. A malformed one changes nothing but what is said.
    void show(const ConfigText& text);
    // Why there is no such text of the file as it is now. Empty where there is.
    void setTrouble(const std::string& trouble);
    void go(const Path& path) { m_contents.go({path, std::nullopt}); }
    void type(const Keystroke& key);
    void setHeight(std::size_t height);  // of the lists

    // Names the processes that have the store open: they bring back what is deleted. Empty for none.
    using Openers = std::function<std::string()>;
    void setOpeners(Openers openers) { m_openers = std::move(openers); }

    // An edit that is to be made now; it is under way until its end is told. One after the other.
    std::optional<Edit> takeOrder();
    bool isWriting() const { return m_writing.has_value(); }
    // What is told of the keys while an edit is under way.
    std::string waitText() const;
    void tellWaiting(const std::string& message) { m_message = message; }
    // 0, or why nothing has been written: 1 when the store was not as expected any more. The text of
    // the file as it is now has to be shown before, with the changes of the edit.
    void tellEnd(int code, const std::string& message);

    bool isOver() const { return m_isOver; }
    bool takeRedraw() { return std::exchange(m_redraw, false); }  // of the screen and of the facts
    bool takeCancel() { return std::exchange(m_cancel, false); }  // of the edit under way

    const Contents& contents() const { return m_contents; }
    const Dialog& dialog() const { return m_dialog; }
    const std::string& message() const { return m_message; }
    // Why what is shown is not what the file says now, as long as that is so.
    const std::string& fault() const { return m_trouble.empty() ? m_malformed : m_trouble; }
    bool isHelpShown() const { return m_isHelpShown; }
    const std::string& rootName() const { return m_rootName; }

private:
    // Makes the edit anew of a store that is not as it was; none when nothing is left to do.
    using Making = std::function<std::optional<Edit>(const Key& root)>;
    struct Work {
        Edit edit;
        Making again;
        bool isUndo = false;
    };

    void take(const Keystroke& key);
    void takePasted(const Keystroke& key);
    void takePending();
    void giveUp();
    bool takeMove(const Keystroke& key);
    bool takeSide(const Keystroke& key);
    bool takeEdit(const Keystroke& key);
    void takeOther(const Keystroke& key);

    void right();
    void left();
    void enter();

    void editValue();
    void askData(const Path& path, const std::optional<Value>& before, Value wanted);
    bool acceptData(const Path& path, const std::optional<Value>& before, Value wanted,
                    const std::string& data);
    void changeType();
    void addValue();
    void addKey();
    void rename();
    void renameValueOf(const Path& path, const Value& value);
    void renameKeyAt(const Path& path);
    void remove();
    void undo();
    void search();
    void searchNext(bool forward);
    void tellFault();
    void tellChanged(const std::vector<Change>& others);

    // False when it is refused, which is said.
    bool order(Work work);
    std::optional<std::string> refusalOf(const Work& work) const;
    bool orderRenaming(Work work);
    // What is said of what is deleted; empty where it does not come back.
    std::string returning() const;

    const std::string m_rootName;
    const Path m_rootPath;
    Contents m_contents;
    Dialog m_dialog;
    std::string m_message;
    std::string m_malformed;
    std::string m_trouble;
    std::string m_toldFault;  // the message about one of these two
    std::string m_searched;
    std::optional<Work> m_ordered;
    std::optional<Work> m_writing;
    std::deque<Keystroke> m_pending;  // typed while an edit is under way
    std::vector<Edit> m_done;
    std::optional<std::pair<Path, Value>> m_edited;  // the value whose data are being typed
    std::size_t m_height = 1;
    Openers m_openers;
    bool m_isShown = false;
    bool m_isHelpShown = false;
    bool m_isOver = false;
    bool m_redraw = false;
    bool m_cancel = false;
    bool m_isCancelled = false;  // the edit under way
    bool m_isDropped = false;    // what was typed since it began
};

}  // namespace vqreg

#endif  // TOOLS_BROWSE_BROWSER_H
