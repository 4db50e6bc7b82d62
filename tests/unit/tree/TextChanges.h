// What may happen to a file between two readings of it, drawn at random.
#ifndef VQTEST_TREE_TEXT_CHANGES_H
#define VQTEST_TREE_TEXT_CHANGES_H

#include <cstddef>
#include <random>
#include <string>
#include <vector>

namespace vqtest {

class TextChanges {
public:
    explicit TextChanges(unsigned seed) : m_random(seed), m_isOdd(seed % 2 == 0) {}

    /// Whether lines come that a writer without faults does not leave; in half of all cases.
    bool isOdd() const { return m_isOdd; }

    /// From 0 to below a limit, and whether one case in so many has come.
    std::size_t below(std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(m_random);
    }
    bool oneIn(std::size_t cases) { return below(cases) == 0; }

    /// Names that meet each other, and that the format cannot hold when `isAny`.
    std::string name(bool isAny);
    std::string valueLine(const std::string& name);
    std::string data();

    /// Another text; most often it differs by a few lines as those of another process would.
    std::string changed(const std::string& text);

private:
    using Lines = std::vector<std::string>;

    std::size_t place(const Lines& lines) { return below(lines.size() + 1); }
    std::size_t line(const Lines& lines, bool isKey);
    std::string keyPath(const Lines& lines);
    static std::size_t sectionEnd(const Lines& lines, std::size_t begin);

    void changeUsually(Lines& lines);
    void changeOddly(Lines& lines);
    void changeData(Lines& lines);
    void insertInOrder(Lines& lines);
    void insertSection(Lines& lines);
    void moveRange(Lines& lines, std::size_t begin, std::size_t end);
    void breakLine(std::string& line);
    void spellDifferently(std::string& line);
    void nameOther(Lines& lines);

    std::mt19937 m_random;
    bool m_isOdd;
};

}  // namespace vqtest

#endif  // VQTEST_TREE_TEXT_CHANGES_H
