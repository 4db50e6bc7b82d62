// What is asked at the bottom of the screen.
#ifndef TOOLS_BROWSE_DIALOG_H
#define TOOLS_BROWSE_DIALOG_H

#include <functional>
#include <optional>
#include <string>

#include "tools/browse/LineEdit.h"

namespace vqreg {

// A text that is typed, a key of some that is wanted, or a yes. One at a time; what an answer leads to
// may ask for more.
class Dialog {
public:
    // False keeps the text for another try.
    using Answer = std::function<bool(const std::string&)>;

    void askText(const std::string& label, const std::string& text, Answer answer);
    // `keys` are the letters of the answers, one of which `answer` gets as its text; `answers` tells them.
    void askKey(const std::string& label, const std::string& answers, const std::string& keys,
                Answer answer);
    // Everything but y is no. The question may be long, because it has names in it; what comes behind it
    // is to be seen all the same.
    void askYes(const std::string& question, const std::string& rest,
                const std::function<void()>& yes);
    void close() { m_question.reset(); }

    bool isOpen() const { return m_question.has_value(); }
    bool isText() const { return m_question && m_question->keys.empty(); }
    bool isYes() const { return m_question && m_question->isYes; }
    const std::string& label() const { return m_question->label; }
    const std::string& rest() const { return m_question->rest; }
    const std::string& answers() const { return m_question->answers; }
    const LineEdit& edit() const { return m_question->edit; }

    // True when it has been given up.
    bool take(const Keystroke& key);
    // Of the text that is typed; false for what is no part of a text.
    bool takePart(const Keystroke& key) { return m_question->edit.take(key); }

private:
    struct Question {
        std::string label;
        std::string rest;
        std::string answers;
        std::string keys;
        LineEdit edit;
        Answer answer;
        bool isYes = false;
    };

    bool takeLetter(const Keystroke& key);
    void give(const std::string& answer);

    std::optional<Question> m_question;
};

}  // namespace vqreg

#endif  // TOOLS_BROWSE_DIALOG_H
