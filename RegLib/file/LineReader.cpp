#include "RegLib/file/LineReader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "RegLib/text/LineSplitter.h"
#include "portable/FileOps.h"

namespace VQRegLib {

namespace {

constexpr std::size_t kBlockSize = 64UL * 1024;

}  // namespace

CLineReader::CLineReader(std::FILE* file)
    : m_pFile(file), m_buffer(std::make_unique_for_overwrite<char[]>(kBlockSize)) {}

void CLineReader::fill() {
    std::memmove(m_buffer.get(), m_buffer.get() + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_begin = 0;
    errno = 0;
    const std::size_t wanted = kBlockSize - m_end;
    const std::size_t got = CFileOps::current().read(m_buffer.get() + m_end, wanted, m_pFile);
    m_end += got;
    if (got < wanted) {
        m_atEnd = true;
        m_nError = std::ferror(m_pFile) ? std::max(errno, 1) : 0;
    }
}

bool CLineReader::next(std::string_view& line) {
    for (;;) {
        std::string_view rest(m_buffer.get() + m_begin, m_end - m_begin);
        // After a read error the beginning of a line is not trusted.
        const bool isWhole = m_atEnd && m_nError == 0;
        if (takeLine(rest, isWhole, line)) {
            m_begin = m_end - rest.size();
            return true;
        }
        if (m_atEnd) {
            return false;
        }
        fill();
    }
}

}  // namespace VQRegLib
