// Each promise of docs/guarantees.md names what proves it, and that exists.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "documents/Documents.h"

namespace fs = std::filesystem;

using vqtest::Document;
using vqtest::projectPath;
using vqtest::readFile;

namespace {

using Names = std::set<std::string>;

void addMatches(const std::string& text, const std::regex& regex, const std::string& format,
                Names& names) {
    for (auto at = std::sregex_iterator(text.begin(), text.end(), regex);
         at != std::sregex_iterator(); ++at) {
        names.insert(at->format(format));
    }
}

// Tests as "Suite.Test", checks of scripts/torture, and scripts.
Names everythingThatProves() {
    Names names;
    const std::regex test(R"(\bTEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\))");
    for (const auto& entry : fs::recursive_directory_iterator(projectPath() / "tests")) {
        if (entry.path().extension() == ".cpp") {
            addMatches(readFile(entry.path().string()), test, "$1.$2", names);
        }
    }
    const std::string checks = readFile((projectPath() / "torture/run/checks.py").string());
    addMatches(checks.substr(0, checks.find("\nOWN = ")), std::regex(R"(\bCheck\("([\w.]+)\")"),
               "$1", names);
    for (const auto& entry : fs::directory_iterator(projectPath() / "scripts")) {
        names.insert("scripts/" + entry.path().filename().string());
    }
    return names;
}

bool exists(const std::string& name, const Names& names) {
    if (!name.ends_with(".*")) {
        return names.contains(name);
    }
    const std::string prefix = name.substr(0, name.size() - 1);
    const auto first = names.lower_bound(prefix);
    return first != names.end() && first->starts_with(prefix);
}

std::vector<std::string> cellsOf(const std::string& row) {
    std::vector<std::string> cells;
    std::istringstream in(row.substr(1));
    for (std::string cell; std::getline(in, cell, '|');) {
        cells.push_back(cell);
    }
    return cells;
}

// What is said to prove something, and where that is.
struct Proof {
    std::string place;
    std::string text;
};

Proof proofOfRow(const std::string& row, std::size_t column) {
    const std::vector<std::string> cells = cellsOf(row);
    return {row, column < cells.size() ? cells[column] : ""};
}

// In a table it is the column "test" or "check"; npos without one.
std::size_t columnOfProof(const std::string& heading) {
    const std::vector<std::string> cells = cellsOf(heading);
    const auto found = std::find_if(cells.begin(), cells.end(), [](const std::string& cell) {
        return cell == " test " || cell == " check ";
    });
    return found == cells.end() ? std::string::npos
                                : static_cast<std::size_t>(found - cells.begin());
}

void addRows(const std::vector<std::string>& lines, std::vector<Proof>& proofs) {
    std::size_t column = std::string::npos;
    bool isInside = false;
    for (const std::string& line : lines) {
        const bool isRow = line.starts_with("|");
        if (isRow && !isInside) {
            column = columnOfProof(line);
            EXPECT_NE(column, std::string::npos) << "no column for a test: " << line;
        } else if (isRow && !line.starts_with("|---")) {
            proofs.push_back(proofOfRow(line, column));
        }
        isInside = isRow;
    }
}

// The list before the first table: what is behind "Tests:" at the end of each point.
void addPoints(const std::vector<std::string>& lines, std::vector<Proof>& proofs) {
    bool isInside = false;
    for (const std::string& line : lines) {
        if (line.starts_with("|")) {
            return;
        }
        if (line.starts_with("- ")) {
            proofs.push_back({line, ""});
            isInside = false;
        } else if (line.starts_with("  ") && !proofs.empty()) {
            isInside = isInside || line.starts_with("  Tests:");
            proofs.back().text += isInside ? line : "";
        }
    }
}

std::vector<Proof> proofsOf(const Document& page) {
    std::vector<Proof> proofs;
    addPoints(page.lines(), proofs);
    EXPECT_GE(proofs.size(), 9u);
    addRows(page.lines(), proofs);
    return proofs;
}

}  // namespace

TEST(Guarantees, NameTestsAndChecksThatExist) {
    const Names known = everythingThatProves();
    ASSERT_GT(known.size(), 1500u);
    const std::vector<Proof> proofs =
        proofsOf(vqtest::readDocument(projectPath() / "docs/guarantees.md"));
    EXPECT_GE(proofs.size(), 55u);
    for (const Proof& proof : proofs) {
        Names named;
        addMatches(proof.text, std::regex("`([^`]+)`"), "$1", named);
        EXPECT_FALSE(named.empty()) << "nothing proves this: " << proof.place;
        for (const std::string& name : named) {
            EXPECT_TRUE(exists(name, known)) << name << " of: " << proof.place;
        }
    }
}

// In the table of the checks the last column says what has been seen.
TEST(Guarantees, HaveAFigureForEachCheck) {
    const Document page = vqtest::readDocument(projectPath() / "docs/guarantees.md");
    int rows = 0;
    bool isInside = false;
    for (const std::string& line : page.lines()) {
        if (isInside && line.starts_with("|") && !line.starts_with("|---")) {
            const std::vector<std::string> cells = cellsOf(line);
            ++rows;
            EXPECT_EQ(cells.size(), 3u) << line;
            EXPECT_TRUE(std::regex_search(cells.back(), std::regex("[0-9]"))) << line;
        }
        isInside =
            line.starts_with("| promise | check | seen |") || (isInside && line.starts_with("|"));
    }
    EXPECT_GE(rows, 17);
}
