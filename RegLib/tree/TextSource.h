// Where a tree reads a text from.
#ifndef REGLIB_TREE_TEXTSOURCE_H
#define REGLIB_TREE_TEXTSOURCE_H

#include <cstddef>
#include <string_view>

namespace VQRegLib {

class CTextSource {
public:
    virtual ~CTextSource() = default;

    // As fread: less than was asked for means the end, or an error.
    virtual std::size_t read(char* to, std::size_t size) = 0;
    virtual int error() const = 0;         // an errno; 0 while no reading has failed
    virtual void rewind() = 0;             // to the beginning of the text
    virtual std::size_t size() const = 0;  // as far as it is known

    // Whether each line is to be told; and each line that is read, when it is.
    virtual bool wantsLines() const { return false; }
    virtual void onLine(std::string_view /*line*/) {}
};

// What became of the reading of a text.
struct CMergeResult {
    int code = 0;            // REGLIB_E_END_OF_FILE, or what stopped it
    int readError = 0;       // an errno: the text ended there too early
    bool isEmpty = false;    // not a single line
    bool hasValues = false;  // a value line was merged; of a comparison, one that differed
};

}  // namespace VQRegLib

#endif  // REGLIB_TREE_TEXTSOURCE_H
