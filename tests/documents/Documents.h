// The project's documents, taken apart.
#ifndef VQTEST_DOCUMENTS_H
#define VQTEST_DOCUMENTS_H

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/TempStore.h"

namespace vqtest {

/// A block of code of a Markdown text.
struct CodeBlock {
    std::string language;  ///< what stands behind the opening quotes
    std::string heading;   ///< under which it stands
    int line = 0;
    std::string text;
};

struct Document {
    std::filesystem::path path;
    std::string text;

    std::vector<std::string> lines() const {
        std::vector<std::string> result;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            result.push_back(line);
        }
        return result;
    }

    std::vector<CodeBlock> blocks() const {
        std::vector<CodeBlock> result;
        std::string heading;
        bool isInside = false;
        int number = 0;
        for (const std::string& line : lines()) {
            ++number;
            if (line.starts_with("```")) {
                isInside = !isInside;
                if (isInside) {
                    result.push_back({line.substr(3), heading, number + 1, ""});
                }
            } else if (isInside) {
                result.back().text += line + '\n';
            } else if (line.starts_with("#")) {
                heading = line.substr(line.find_first_not_of("# "));
            }
        }
        return result;
    }

    /// What stands between single back quotes, and the lines of all code blocks.
    std::vector<std::string> code() const {
        std::vector<std::string> result;
        std::string prose;
        bool isInside = false;
        for (const std::string& line : lines()) {
            if (line.starts_with("```")) {
                isInside = !isInside;
            } else if (isInside) {
                result.push_back(line);
            } else {
                prose += line + ' ';
            }
        }
        for (std::size_t at = prose.find('`'); at != std::string::npos;) {
            const std::size_t end = prose.find('`', at + 1);
            if (end == std::string::npos) {
                break;
            }
            result.push_back(prose.substr(at + 1, end - at - 1));
            at = prose.find('`', end + 1);
        }
        return result;
    }
};

inline std::filesystem::path projectPath() {
    return VQREG_PROJECT;
}

inline Document readDocument(const std::filesystem::path& path) {
    return {path, readFile(path.string())};
}

/// All Markdown texts of the project.
inline std::vector<Document> documents() {
    namespace fs = std::filesystem;
    std::vector<Document> result;
    for (const char* const folder : {".", "docs", "portable", "tools/vqreg"}) {
        for (const auto& entry : fs::directory_iterator(projectPath() / folder)) {
            if (entry.path().extension() == ".md") {
                result.push_back(readDocument(entry.path()));
            }
        }
    }
    return result;
}

}  // namespace vqtest

#endif  // VQTEST_DOCUMENTS_H
