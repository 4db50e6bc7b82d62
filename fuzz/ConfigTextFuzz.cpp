// Texts of whole trees from anywhere: whatever they hold, the command must not crash on them, and
// what it reads it must be able to write and read again. A text that begins
// with "{" is JSON.
//
// With clang: clang++ -std=c++20 -fsanitize=fuzzer,address,undefined -DVQREG_LIBFUZZER ...
// Without VQREG_LIBFUZZER it is a program that runs through the files it is given.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/Support.h"
#include "tools/vqreg/text/ConfigReader.h"
#include "tools/vqreg/text/ConfigText.h"
#include "tools/vqreg/text/Difference.h"
#include "tools/vqreg/text/JsonText.h"

namespace {

using namespace vqreg;
using vqfuzz::require;

void checkPlaces(const std::vector<Finding>& findings) {
    for (const Finding& finding : findings) {
        require(finding.line > 0 && finding.column > 0, "a finding has a place");
        const std::string line = format("file", finding);
        require(line.find('\n') == std::string::npos, "a finding is one line");
    }
}

void readConfigText(std::string_view text) {
    ConfigReader reader;
    reader.read(text);
    checkPlaces(reader.findings());
    if (!reader.isReadable()) {
        return;
    }
    const std::string next = reader.nextText();
    const Key top = reader.takeTop();
    if (reader.findings().empty()) {
        const ConfigText again = parseConfigText(next);
        require(again.isReadable(), "the next text is readable");
        require(difference(top, again.top).empty(), "the next text has the same tree");
        const ConfigText composed = parseConfigText(composeConfigText(top));
        require(composed.findings.empty(), "a composed text is clean");
        require(difference(top, composed.top).empty(), "a composed text has the same tree");
    }
    const JsonText json = parseJsonText(composeJsonText(top, ""));
    require(json.isReadable() && difference(top, json.key).empty(), "JSON keeps the tree");
}

void readJsonText(std::string_view text) {
    const JsonText parsed = parseJsonText(text);
    checkPlaces(parsed.findings);
    if (parsed.isReadable()) {
        const JsonText again = parseJsonText(composeJsonText(parsed.key, ""));
        require(again.isReadable() && difference(parsed.key, again.key).empty(),
                "JSON keeps the tree");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (text.starts_with('{')) {
        readJsonText(text);
    } else {
        readConfigText(text);
    }
    return 0;
}

#ifndef VQREG_LIBFUZZER

int main(int argc, char** argv) {
    return vqfuzz::runThroughFiles(argc, argv, LLVMFuzzerTestOneInput);
}

#endif
