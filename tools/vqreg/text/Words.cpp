#include "tools/vqreg/text/Words.h"

#include "tools/vqreg/base/ExitCode.h"

namespace vqreg {

namespace {

bool separatesWords(char c) {
    return c == ' ' || c == '\t';
}

// Takes a line apart from its beginning on.
class WordReader {
public:
    explicit WordReader(std::string_view line) : m_rest(line) {}

    // False at the end of the line or at a comment.
    bool next(std::string& word) {
        while (!m_rest.empty() && separatesWords(m_rest.front())) {
            take();
        }
        if (m_rest.empty() || m_rest.front() == '#') {
            return false;
        }
        word.clear();
        while (!m_rest.empty() && !separatesWords(m_rest.front())) {
            readPart(word);
        }
        return true;
    }

private:
    void readPart(std::string& word) {
        const char c = take();
        if (c == '\'') {
            readQuoted(word);
        } else if (c == '"') {
            readDoubleQuoted(word);
        } else if (c == '\\') {
            word += escaped();
        } else {
            word += c;
        }
    }

    void readQuoted(std::string& word) {
        const std::size_t end = m_rest.find('\'');
        if (end == std::string_view::npos) {
            throw CommandError(eExit::eMalformed, "a ' is not closed");
        }
        word += m_rest.substr(0, end);
        m_rest.remove_prefix(end + 1);
    }

    void readDoubleQuoted(std::string& word) {
        constexpr std::string_view kSpecial = "\"\\$`";
        while (!m_rest.empty()) {
            const char c = take();
            if (c == '"') {
                return;
            }
            const bool isEscape = c == '\\' && !m_rest.empty() &&
                                  kSpecial.find(m_rest.front()) != std::string_view::npos;
            word += isEscape ? take() : c;
        }
        throw CommandError(eExit::eMalformed, "a \" is not closed");
    }

    char escaped() {
        if (m_rest.empty()) {
            throw CommandError(eExit::eMalformed, "a \\ stands at the end; a command has one line");
        }
        return take();
    }

    char take() {
        const char c = m_rest.front();
        m_rest.remove_prefix(1);
        return c;
    }

    std::string_view m_rest;
};

}  // namespace

std::vector<std::string> wordsOf(std::string_view line) {
    std::vector<std::string> words;
    WordReader reader(line);
    for (std::string word; reader.next(word);) {
        words.push_back(word);
    }
    return words;
}

}  // namespace vqreg
