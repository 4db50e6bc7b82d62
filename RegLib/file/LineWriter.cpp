#include "RegLib/file/LineWriter.h"

#include <algorithm>
#include <cerrno>

#include "RegLib/trace/Trace.h"
#include "portable/FileOps.h"

namespace VQRegLib {

namespace {

constexpr std::size_t kLargestBuffer = 256UL * 1024;
constexpr std::size_t kSmallestBuffer = 512;

}  // namespace

CLineWriter::CLineWriter(const void* traced, std::FILE* file, std::size_t size)
    : m_pTraced(traced),
      m_pFile(file),
      m_capacity(std::clamp(size, kSmallestBuffer, kLargestBuffer)) {
    m_buffer.reserve(m_capacity);
}

void CLineWriter::line(std::string_view text) {
    put(text);
    put("\n");
}

void CLineWriter::put(std::string_view text) {
    while (!text.empty()) {
        const std::size_t room = m_capacity - m_buffer.size();
        m_buffer.append(text.substr(0, room));
        text.remove_prefix(std::min(room, text.size()));
        if (m_buffer.size() == m_capacity) {
            writeOut();
        }
    }
}

void CLineWriter::writeOut() {
    if (CFileOps::current().write(m_buffer.data(), m_buffer.size(), m_pFile) != m_buffer.size()) {
        const int error = errno;
        m_isWhole = false;
        REGLIB_TRACE(eTraceAlways,
                     "(Error) CRegLibImplFile:fputs_ (0x%08X), fputs failed, errno %d\n",
                     traceId(m_pTraced), error);
    }
    m_buffer.clear();
}

bool CLineWriter::finish() {
    if (!m_buffer.empty()) {
        writeOut();
    }
    return m_isWhole;
}

}  // namespace VQRegLib
