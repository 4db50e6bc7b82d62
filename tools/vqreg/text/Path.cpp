#include "tools/vqreg/text/Path.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/vqreg/text/Shown.h"

namespace vqreg {

std::string folded(const std::string& name) {
    std::string result = name;
    std::transform(result.begin(), result.end(), result.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return result;
}

Path splitPath(const std::string& text) {
    if (text == "/" || text == ".") {
        return {};
    }
    Path path;
    std::size_t begin = text.starts_with('/') ? 1 : 0;
    for (;;) {
        const std::size_t end = text.find('/', begin);
        path.push_back(text.substr(begin, end - begin));
        if (end == std::string::npos) {
            return path;
        }
        begin = end + 1;
    }
}

std::string plainPath(const Path& path) {
    std::string text;
    for (const std::string& name : path) {
        if (&name != &path.front()) {
            text += '/';
        }
        text += name;
    }
    return text;
}

std::string joinPath(const Path& path) {
    if (path.empty()) {
        return "/";
    }
    const std::string text = plainPath(path);
    // What would not be read back as these names without a slash in front.
    return text.empty() || text == "." || text.front() == '/' ? "/" + text : text;
}

Path joined(Path above, const Path& below) {
    above.insert(above.end(), below.begin(), below.end());
    return above;
}

bool isSameOrBelow(const Path& path, const Path& top) {
    return path.size() >= top.size() && std::equal(top.begin(), top.end(), path.begin(),
                                                   [](const auto& left, const auto& right) {
                                                       return folded(left) == folded(right);
                                                   });
}

Path tidiedPath(const Path& path, const std::function<bool(const Path&)>& isThere) {
    if (path.size() < 2 || !path.back().empty()) {
        return path;
    }
    const Path without(path.begin(), path.end() - 1);
    return !isThere(path) && isThere(without) ? without : path;
}

bool isNothing(const Path& path) {
    return path.size() == 1 && path.front().empty();
}

std::string nameOfKey(const Path& path) {
    if (isNothing(path)) {
        return "the key \"\" (the root key is \"/\")";
    }
    return path.empty() ? "the root key" : "the key \"" + printable(joinPath(path)) + '"';
}

std::string nameOfValue(const Path& path, const std::string& name) {
    return fmt::format("the value \"{}\" of {}", printable(name), nameOfKey(path));
}

}  // namespace vqreg
