#include "tools/vqreg/usage/BrowseRequest.h"

#include <fmt/format.h>

#include <cstdlib>

namespace vqreg {

namespace {

// A text that may be missing is one with a sign before it.
std::string marked(const std::optional<std::string>& text) {
    return text ? "=" + *text : "-";
}

std::optional<std::string> unmarked(const std::string& text) {
    return text.starts_with('=') ? std::optional(text.substr(1)) : std::nullopt;
}

}  // namespace

std::vector<std::string> BrowseRequest::arguments() const {
    return {marked(store.file),
            marked(store.root),
            fmt::format("{}", store.timeoutSeconds),
            store.notify ? "notify" : "quiet",
            isColored ? "colour" : "plain",
            key};
}

std::optional<BrowseRequest> BrowseRequest::of(const std::vector<std::string>& arguments) {
    if (arguments.size() != 6) {
        return std::nullopt;
    }
    BrowseRequest request;
    request.store.file = unmarked(arguments[0]);
    request.store.root = unmarked(arguments[1]);
    request.store.timeoutSeconds = std::strtod(arguments[2].c_str(), nullptr);
    request.store.notify = arguments[3] == "notify";
    request.isColored = arguments[4] == "colour";
    request.key = arguments[5];
    return request;
}

}  // namespace vqreg
