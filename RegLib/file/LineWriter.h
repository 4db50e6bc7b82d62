// Writes the configuration file through one large buffer.
#ifndef REGLIB_FILE_LINEWRITER_H
#define REGLIB_FILE_LINEWRITER_H

#include <cstdio>
#include <string>
#include <string_view>

namespace VQRegLib {

// After a write error it goes on with the rest, each error in the trace log, and tells in the end:
// the text in memory stays what it is, and the next export writes all of it again.
class CLineWriter {
public:
    // `size` of the whole text, as far as it is known.
    CLineWriter(const void* traced, std::FILE* file, std::size_t size);

    void line(std::string_view text);
    bool finish();  // true when the whole text has been written

private:
    void put(std::string_view text);
    void writeOut();

    const void* m_pTraced;  // whose address stands in the trace lines
    std::FILE* m_pFile;
    std::string m_buffer;
    std::size_t m_capacity;
    bool m_isWhole = true;
};

}  // namespace VQRegLib

#endif  // REGLIB_FILE_LINEWRITER_H
