// Texts of one file one after the other, as a process reads them that others write for: comparing each with
// the one before makes the same tree as merging it whole, and both the one that the plain tree of the tests
// makes. Between two of them the process may write its own tree, or lose one reading half-way.
//
// The input is the texts, each behind a byte that says what comes before it: 0xFF nothing, 0xFE a write,
// 0xFD a reading of the text that follows which fails in its middle.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/Trees.h"

namespace {

using namespace vqfuzz;
using VQRegLib::CMerge;
using VQRegLib::CMergeResult;
using VQRegLib::CTree;
using vqtest::TextOf;

constexpr char kFirstMark = '\xFD';
constexpr char kFailing = '\xFD';
constexpr char kWriting = '\xFE';
constexpr std::size_t kMostTexts = 8;

class Reader {
public:
    void write() {
        require(vqtest::textOf(m_stepped) == vqtest::textOf(m_whole), "both write the same");
        m_stepped.textWasWritten();
        m_whole.textWasWritten();
    }

    // Reading stops in the middle; a line that is not whole counts for neither.
    void failHalfWay(std::string_view text) {
        const std::size_t half = text.size() / 2;
        TextOf forStep{std::string(text)};
        TextOf forWhole{std::string(text)};
        forStep.failAt(half);
        forWhole.failAt(half);
        const CMergeResult stepped = VQRegLib::mergeText(m_stepped, forStep);
        const CMergeResult whole = CMerge(m_whole).run(forWhole);
        const int code = m_plain.merge(wholeLines(text.substr(0, half))).code;
        require(stepped.code == code && whole.code == code, "half a text is well formed or not");
    }

    void read(std::string_view text) {
        TextOf forWhole{std::string(text)};
        const CMergeResult whole = CMerge(m_whole).run(forWhole);
        const bool isWellFormed = readInto(m_stepped, m_plain, text);
        require(isWellFormed == (whole.code == VQRegLib::REGLIB_E_END_OF_FILE),
                "both ways of reading find the text well formed or not");
    }

    void check() {
        require(vqtest::dumpOf(m_stepped) == m_plain.dump(m_plain.root()), "compared, as merged");
        require(vqtest::dumpOf(m_whole) == m_plain.dump(m_plain.root()),
                "merged, as the lines say");
    }

    void finish() {
        requireSame(m_stepped, m_plain);
        requireSame(m_whole, m_plain);
        checkExport(m_stepped, m_plain);
    }

private:
    // A reader takes at most 2048 bytes for a line.
    static std::string_view wholeLines(std::string_view text) {
        constexpr std::size_t kLongest = 2048;
        std::size_t end = 0;
        for (;;) {
            const std::string_view rest = text.substr(end);
            const std::size_t feed = rest.substr(0, kLongest).find('\n');
            if (feed == std::string_view::npos && rest.size() < kLongest) {
                return text.substr(0, end);
            }
            end += feed == std::string_view::npos ? kLongest : feed + 1;
        }
    }

    CTree m_stepped;
    CTree m_whole;
    PlainTree m_plain;
};

std::size_t nextMark(std::string_view input) {
    std::size_t at = 0;
    while (at < input.size() &&
           static_cast<unsigned char>(input[at]) < static_cast<unsigned char>(kFirstMark)) {
        ++at;
    }
    return at;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    Reader reader;
    char mark = '\xFF';
    for (std::size_t count = 0; count < kMostTexts; ++count) {
        const std::string_view text = rest.substr(0, nextMark(rest));
        if (mark == kWriting) {
            reader.write();
        } else if (mark == kFailing) {
            reader.failHalfWay(text);
        }
        reader.read(text);
        reader.check();
        rest.remove_prefix(text.size());
        if (rest.empty()) {
            break;
        }
        mark = rest.front();
        rest.remove_prefix(1);
    }
    reader.finish();
    return 0;
}

#ifndef VQREG_LIBFUZZER

int main(int argc, char** argv) {
    return vqfuzz::runThroughFiles(argc, argv, LLVMFuzzerTestOneInput);
}

#endif
