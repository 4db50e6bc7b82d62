// What a service manager reads from an EnvironmentFile= of a unit, after the rules of its manual.
#ifndef VQTEST_ENVIRONMENT_FILE_H
#define VQTEST_ENVIRONMENT_FILE_H

#include <map>
#include <string>
#include <string_view>

namespace vqtest {

/// One assignment after the other. Lines that begin with "#" or ";" and lines without "=" are none.
class EnvironmentFile {
public:
    explicit EnvironmentFile(std::string_view text) : m_text(text) {
        while (m_at < m_text.size()) {
            readLine();
        }
    }

    const std::map<std::string, std::string>& variables() const { return m_variables; }

private:
    static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

    bool isAtEnd() const { return m_at == m_text.size(); }

    void readLine() {
        const std::size_t end = std::min(m_text.find('\n', m_at), m_text.size());
        const std::size_t equals = m_text.find('=', m_at);
        const char first = m_text[m_at];
        if (first == '#' || first == ';' || equals >= end) {
            m_at = std::min(end + 1, m_text.size());
            return;
        }
        const std::string name(m_text.substr(m_at, equals - m_at));
        m_at = equals + 1;
        while (!isAtEnd() && isBlank(m_text[m_at])) {
            ++m_at;
        }
        m_variables[name] = readText();
    }

    // To the end of the line, and behind it.
    std::string readText() {
        std::string text;
        if (!isAtEnd() && m_text[m_at] == '\'') {
            text = quoted('\'', "");
        } else if (!isAtEnd() && m_text[m_at] == '"') {
            text = quoted('"', "\"\\`$");
        } else {
            return plain();
        }
        text += plain();
        return text;
    }

    // A backslash keeps what is in `escaped`, takes a line end away, and is itself before all else.
    std::string quoted(char quote, std::string_view escaped) {
        std::string text;
        for (++m_at; !isAtEnd() && m_text[m_at] != quote; ++m_at) {
            if (m_text[m_at] != '\\' || escaped.empty() || m_at + 1 == m_text.size()) {
                text += m_text[m_at];
                continue;
            }
            const char next = m_text[++m_at];
            if (escaped.find(next) == std::string_view::npos && next != '\n') {
                text += '\\';
            }
            text += next == '\n' ? "" : std::string(1, next);
        }
        m_at += isAtEnd() ? 0 : 1;
        return text;
    }

    std::string plain() {
        std::string text;
        for (; !isAtEnd() && m_text[m_at] != '\n'; ++m_at) {
            if (m_text[m_at] == '\\' && m_at + 1 < m_text.size()) {
                ++m_at;
                text += m_text[m_at] == '\n' ? "" : std::string(1, m_text[m_at]);
            } else {
                text += m_text[m_at];
            }
        }
        m_at += isAtEnd() ? 0 : 1;
        while (!text.empty() && isBlank(text.back())) {
            text.pop_back();
        }
        return text;
    }

    const std::string_view m_text;
    std::size_t m_at = 0;
    std::map<std::string, std::string> m_variables;
};

}  // namespace vqtest

#endif  // VQTEST_ENVIRONMENT_FILE_H
