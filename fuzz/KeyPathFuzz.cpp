// Paths of keys. A path of a program falls into its names at each slash and backslash; the key that is made
// of them has a line that leads back to it where the format can hold its names; and the path in a key line
// falls into names as a plain reader finds them.
//
// The input is several paths, each ended by a line feed.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "RegLib/text/KeyPath.h"
#include "RegLib/text/LineFormat.h"
#include "fuzz/Trees.h"

namespace {

using namespace vqfuzz;
using VQRegLib::CKeyOrValue;
using VQRegLib::CKeyPath;
using VQRegLib::CTree;
using Names = std::vector<std::string>;

// With the last name, which may be empty.
Names split(const std::string& path, const char* separators) {
    Names names(1);
    for (const char c : path) {
        if (std::string_view(separators).find(c) != std::string_view::npos) {
            names.emplace_back();
        } else {
            names.back() += c;
        }
    }
    return names;
}

Names namesOfPath(const std::string& path) {
    Names names;
    CKeyPath rest(path);
    for (std::string_view name; rest.next(name);) {
        names.emplace_back(name);
    }
    require(names == split(path, "/\\"), "a path falls into names at its slashes");
    return names;
}

void readKeyLine(const std::string& text) {
    const std::string line = '[' + text;
    std::string_view path;
    const std::size_t end = text.find(']');
    require((VQRegLib::parseKeyLine(line, path) >= 0) == (end != std::string::npos),
            "a key line has both brackets");
    if (end == std::string::npos) {
        return;
    }
    require(path == text.substr(0, end), "a path ends at the first bracket");
    Names expected = split(std::string(path), "/");
    if (expected.back().empty()) {
        expected.pop_back();  // a slash at the end adds no name
    }
    Names names;
    for (std::string_view name; VQRegLib::nextKeyLineName(path, name);) {
        names.emplace_back(name);
    }
    require(names == expected, "a key line falls into names at its slashes");
}

// As an operation that creates keys does, in both trees.
void create(CTree& tree, PlainTree& plain, const Names& names) {
    CKeyOrValue* at = &tree.root();
    PlainNode* plainAt = &plain.root();
    for (const std::string& name : names) {
        CKeyOrValue* found = tree.findChild(*at, name);
        PlainNode* plainFound = plain.find(*plainAt, name);
        require((found == nullptr) == (plainFound == nullptr), "a key is there or not");
        at = found ? found : &tree.addKey(*at, std::string_view(name));
        plainAt = plainFound ? plainFound : &plain.addKey(*plainAt, name);
        require(plainAt->line == at->line(), "a key has the line of its path");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    CTree tree;
    PlainTree plain;
    while (!rest.empty()) {
        const std::string path(rest.substr(0, rest.find('\n')));
        rest.remove_prefix(std::min(path.size() + 1, rest.size()));
        readKeyLine(path);
        create(tree, plain, namesOfPath(path));
    }
    requireSame(tree, plain);
    checkExport(tree, plain);
    return 0;
}

#ifndef VQREG_LIBFUZZER

int main(int argc, char** argv) {
    return vqfuzz::runThroughFiles(argc, argv, LLVMFuzzerTestOneInput);
}

#endif
