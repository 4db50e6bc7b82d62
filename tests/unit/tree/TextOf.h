// A text as a tree reads it. It counts how it is read, and fails where it is told to.
#ifndef VQTEST_TREE_TEXT_OF_H
#define VQTEST_TREE_TEXT_OF_H

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "RegLib/tree/TextSource.h"

namespace vqtest {

class TextOf : public VQRegLib::CTextSource {
public:
    explicit TextOf(std::string text) : m_text(std::move(text)), m_told(m_text.size()) {}

    /// Reading fails behind so many bytes, each time.
    void failAt(std::size_t at) {
        m_text.resize(std::min(at, m_text.size()));
        m_fails = true;
    }
    /// What size() says, which may be wrong: the text may grow while it is read.
    void tellSize(std::size_t size) { m_told = size; }
    void tellLines() { m_wantsLines = true; }

    int rewinds() const { return m_rewinds; }
    /// Only a merge of the whole text asks for its size before.
    bool wasReadWhole() const { return m_isMeasured; }
    const std::vector<std::string>& lines() const { return m_lines; }

    std::size_t read(char* to, std::size_t size) override {
        const std::size_t got = m_text.copy(to, size, m_at);
        m_at += got;
        m_error = m_fails && got < size ? EIO : 0;
        return got;
    }
    int error() const override { return m_error; }
    void rewind() override {
        m_at = 0;
        m_error = 0;
        ++m_rewinds;
    }
    std::size_t size() const override {
        m_isMeasured = true;
        return m_told;
    }
    bool wantsLines() const override { return m_wantsLines; }
    void onLine(std::string_view line) override { m_lines.emplace_back(line); }

private:
    std::string m_text;
    std::size_t m_told;
    std::size_t m_at = 0;
    bool m_fails = false;
    bool m_wantsLines = false;
    int m_error = 0;
    int m_rewinds = 0;
    mutable bool m_isMeasured = false;
    std::vector<std::string> m_lines;
};

}  // namespace vqtest

#endif  // VQTEST_TREE_TEXT_OF_H
