// What is said besides when the process is ended in the middle of its work, for who has something that
// nobody would find otherwise.
#ifndef TOOLS_VQREG_TERMINAL_LASTWORDS_H
#define TOOLS_VQREG_TERMINAL_LASTWORDS_H

#include <string>

namespace vqreg {

// One at a time; the words hold while it lives.
class LastWords {
public:
    explicit LastWords(const std::string& words) { current() = words; }
    ~LastWords() { current().clear(); }
    LastWords(const LastWords&) = delete;
    LastWords& operator=(const LastWords&) = delete;

    static std::string& current() {
        static std::string words;
        return words;
    }
};

}  // namespace vqreg

#endif  // TOOLS_VQREG_TERMINAL_LASTWORDS_H
