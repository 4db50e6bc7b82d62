// What the documents name exists.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "documents/Documents.h"

namespace fs = std::filesystem;

using vqtest::Document;
using vqtest::projectPath;

namespace {

// As the pages of a code host make them of headings.
std::string anchorOf(const std::string& heading) {
    std::string anchor;
    for (const char c : heading) {
        if (std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_') {
            anchor += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        } else if (c == ' ') {
            anchor += '-';
        }
    }
    return anchor;
}

std::set<std::string> anchorsOf(const Document& document) {
    std::set<std::string> anchors;
    for (const std::string& line : document.lines()) {
        if (line.starts_with("#")) {
            anchors.insert(anchorOf(line.substr(line.find_first_not_of("# "))));
        }
    }
    return anchors;
}

std::vector<std::string> matches(const std::string& text, const std::string& pattern, int group) {
    const std::regex regex(pattern);
    std::vector<std::string> result;
    for (auto at = std::sregex_iterator(text.begin(), text.end(), regex);
         at != std::sregex_iterator(); ++at) {
        result.push_back((*at)[static_cast<std::size_t>(group)]);
    }
    return result;
}

bool existsSomewhere(const Document& document, const std::string& name) {
    const fs::path places[] = {projectPath(), document.path.parent_path(),
                               projectPath() / "RegLib"};
    return std::any_of(std::begin(places), std::end(places),
                       [&](const fs::path& place) { return fs::exists(place / name); });
}

}  // namespace

TEST(Documents, AreFound) {
    EXPECT_GE(vqtest::documents().size(), 8u);
}

TEST(Documents, LinksLeadSomewhere) {
    int links = 0;
    for (const Document& document : vqtest::documents()) {
        for (const std::string& link : matches(document.text, R"(\]\(([^)\s]+)\))", 1)) {
            ++links;
            const std::size_t hash = std::min(link.find('#'), link.size());
            const fs::path target =
                hash == 0 ? document.path : document.path.parent_path() / link.substr(0, hash);
            ASSERT_TRUE(fs::exists(target)) << document.path << " links to " << link;
            if (hash < link.size()) {
                EXPECT_TRUE(anchorsOf(vqtest::readDocument(target)).contains(link.substr(hash + 1)))
                    << document.path << " links to " << link;
            }
        }
    }
    EXPECT_GT(links, 15);
}

TEST(Documents, PathsOfTheProjectExist) {
    int paths = 0;
    for (const Document& document : vqtest::documents()) {
        for (const std::string& code : document.code()) {
            for (
                const std::string& path : matches(
                    code,
                    R"((^|[\s"(])((scripts|docs|examples|tests|tools|include|python|RegLib|portable|cmake|fuzz|bench|\.ci)/[\w./-]*\w))",
                    2)) {
                ++paths;
                EXPECT_TRUE(existsSomewhere(document, path)) << document.path << ": " << path;
            }
        }
    }
    EXPECT_GT(paths, 20);
}

TEST(Documents, SourceFilesExist) {
    int files = 0;
    for (const Document& document : vqtest::documents()) {
        for (const std::string& code : document.code()) {
            for (const std::string& file :
                 matches(code, R"((^|[\s"(])(\w+/\w[\w/]*\.(cpp|h|md|map|sh|txt)))", 2)) {
                ++files;
                EXPECT_TRUE(existsSomewhere(document, file)) << document.path << ": " << file;
            }
        }
    }
    EXPECT_GE(files, 2);
}

// What they say about the header's names: a name that is gone from it is gone from them.
TEST(Documents, NamesOfTheInterfaceExist) {
    const std::string header = vqtest::readFile((projectPath() / "include/VQRegLib.h").string()) +
                               vqtest::readFile((projectPath() / "include/VQRegStore.h").string());
    int names = 0;
    for (const Document& document : vqtest::documents()) {
        for (const std::string& code : document.code()) {
            for (const std::string& name :
                 matches(code, R"(\b(VQReg[A-Z]\w+|REGLIB_\w+|\w+RegistryChange\w+)\b)", 1)) {
                ++names;
                EXPECT_TRUE(header.find(name) != std::string::npos || name == "VQRegLibConfig")
                    << document.path << ": " << name;
            }
        }
    }
    EXPECT_GT(names, 50);
}

TEST(Documents, NamesOfVQRegStoreExist) {
    std::string headers;
    for (const auto& entry : fs::directory_iterator(projectPath() / "include/VQRegStore")) {
        headers += vqtest::readFile(entry.path().string());
    }
    int names = 0;
    for (const Document& document : vqtest::documents()) {
        for (const std::string& code : document.code()) {
            for (const std::string& name : matches(code, R"(\b(vqreg|errc|Type)::(\w+))", 2)) {
                ++names;
                EXPECT_TRUE(std::regex_search(headers, std::regex("\\b" + name + "\\b")))
                    << document.path << ": " << name;
            }
        }
    }
    EXPECT_GT(names, 20);
}

TEST(Documents, PresetsAndScriptsOfTheProjectAreNamed) {
    const std::string readme = vqtest::readFile((projectPath() / "README.md").string());
    for (const auto& entry : fs::directory_iterator(projectPath() / "scripts")) {
        const std::string name = entry.path().filename();
        if (!name.ends_with(".sh")) {  // those are for other scripts to read
            EXPECT_NE(readme.find("scripts/" + name), std::string::npos)
                << "README.md does not say what scripts/" << name << " is for";
        }
    }
}
