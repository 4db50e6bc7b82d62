#include "tools/browse/Dialog.h"

#include <utility>

namespace vqreg {

void Dialog::askText(const std::string& label, const std::string& text, Answer answer) {
    m_question = Question{label, "", "", "", LineEdit(text), std::move(answer)};
}

void Dialog::askKey(const std::string& label, const std::string& answers, const std::string& keys,
                    Answer answer) {
    m_question = Question{label, "", answers, keys, LineEdit(), std::move(answer)};
}

void Dialog::askYes(const std::string& question, const std::string& rest,
                    const std::function<void()>& yes) {
    askKey(question, " [y/N] ", "yY", [yes](const std::string&) {
        yes();
        return true;
    });
    m_question->rest = rest;
    m_question->isYes = true;
}

bool Dialog::take(const Keystroke& key) {
    if (key.key == eKey::eEscape || key.isText(control('G'))) {
        m_question.reset();
        return true;
    }
    if (!m_question->keys.empty()) {
        return takeLetter(key);
    }
    if (key.key == eKey::eEnter) {
        give({});
    } else {
        m_question->edit.take(key);
    }
    return false;
}

bool Dialog::takeLetter(const Keystroke& key) {
    const bool isLetter = key.key == eKey::eText && key.character > L' ' && key.character < 0x7F;
    const char letter = isLetter ? static_cast<char>(key.character) : '\0';
    if (!isLetter || m_question->keys.find(letter) == std::string::npos) {
        m_question.reset();
        return true;
    }
    give(std::string(1, letter));
    return false;
}

// Of a text that is typed, the answer is the text. It may open another question in the place of this one.
void Dialog::give(const std::string& answer) {
    Question present = std::move(*m_question);
    m_question.reset();
    const bool isDone = present.answer(present.keys.empty() ? present.edit.text() : answer);
    if (!isDone && !m_question) {
        m_question = std::move(present);
    }
}

}  // namespace vqreg
