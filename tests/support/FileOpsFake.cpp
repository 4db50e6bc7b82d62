#include "support/FileOpsFake.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <stdexcept>
#include <utility>

using VQRegLib::COpenFile;

namespace vqtest {

namespace {

constexpr std::size_t kUniqueEnding = 36;

std::string shortName(const char* path) {
    std::string name = path;
    name = name.substr(name.rfind('/') + 1);
    constexpr std::string_view kBackup = ".bak";
    if (name.ends_with(kBackup)) {
        const std::string beside = name.substr(0, name.size() - kBackup.size());
        return shortName(beside.c_str()) + std::string(kBackup);
    }
    const std::size_t size = name.size();
    const bool isTemporary = size > kUniqueEnding && name[size - 13] == '-' &&
                             name[size - 18] == '-' && name[size - 23] == '-';
    return isTemporary ? name.substr(0, size - kUniqueEnding) + "+" : name;
}

}  // namespace

FileOpsFake::FileOpsFake() {
    VQRegLib::CFileOps::replace(this);
}

FileOpsFake::~FileOpsFake() {
    VQRegLib::CFileOps::replace(nullptr);
}

void FileOpsFake::fail(FileCall call, int error, int skip) {
    m_orders[call] = {Kind::eError, error, skip};
}

void FileOpsFake::throwNoMemory(FileCall call) {
    m_orders[call] = {Kind::eNoMemory, 0, 0};
}

void FileOpsFake::throwOther(FileCall call) {
    m_orders[call] = {Kind::eOther, 0, 0};
}

void FileOpsFake::breakReadingAfter(std::size_t bytes, int error) {
    m_breaksReading = true;
    m_readableBytes = bytes;
    m_readError = error;
}

void FileOpsFake::heal() {
    m_orders.clear();
    m_breaksReading = false;
}

int FileOpsFake::count(FileCall call) const {
    const auto found = m_counts.find(call);
    return found == m_counts.end() ? 0 : found->second;
}

void FileOpsFake::clear() {
    m_calls.clear();
    m_counts.clear();
}

bool FileOpsFake::fails(FileCall call, const std::string& text) {
    m_calls.push_back(text);
    ++m_counts[call];
    const auto found = m_orders.find(call);
    if (found == m_orders.end()) {
        return false;
    }
    Order& order = found->second;
    if (order.skip > 0) {
        --order.skip;
        return false;
    }
    switch (order.kind) {
        case Kind::eNoMemory:
            throw std::bad_alloc();
        case Kind::eOther:
            throw std::runtime_error("a fault on order");
        default:
            errno = order.error;
            return true;
    }
}

COpenFile FileOpsFake::openForReading(const char* path) {
    return fails(FileCall::eOpenForReading, "openForReading " + shortName(path))
               ? COpenFile()
               : CFileOps::openForReading(path);
}

COpenFile FileOpsFake::createForWriting(const char* path, std::uint64_t size) {
    return fails(FileCall::eCreateForWriting, "createForWriting " + shortName(path))
               ? COpenFile()
               : CFileOps::createForWriting(path, size);
}

std::size_t FileOpsFake::read(void* buffer, std::size_t size, COpenFile& file) {
    bool broken = fails(FileCall::eRead, "read");
    std::size_t got = 0;
    if (!broken) {
        got =
            CFileOps::read(buffer, m_breaksReading ? std::min(size, m_readableBytes) : size, file);
        m_readableBytes -= m_breaksReading ? got : 0;
        broken = m_breaksReading && m_readableBytes == 0;
    }
    if (broken && m_breaksReading) {
        errno = m_readError;
    }
    return got;
}

std::size_t FileOpsFake::writePieces(std::span<const std::string_view> pieces,
                                     const COpenFile& file) {
    if (!fails(FileCall::eWrite, "write")) {
        return CFileOps::writePieces(pieces, file);
    }
    // As a disk that gets full: a part of it has arrived.
    const int error = errno;
    std::size_t written = 0;
    if (!pieces.empty()) {
        const std::string_view part = pieces.front().substr(0, pieces.front().size() / 2);
        written = CFileOps::writePieces({&part, 1}, file);
    }
    errno = error;
    return written;
}

int FileOpsFake::close(COpenFile file) {
    const bool failing = fails(FileCall::eClose, "close");
    const int error = errno;
    const int result = CFileOps::close(std::move(file));
    if (failing) {
        errno = error;
    }
    return failing ? -1 : result;
}

int FileOpsFake::makeWritableForAll(const char* path, bool* holdsText) {
    return fails(FileCall::eMakeWritableForAll, "makeWritableForAll " + shortName(path))
               ? -1
               : CFileOps::makeWritableForAll(path, holdsText);
}

int FileOpsFake::makeWritableForAll(const COpenFile& file) {
    return fails(FileCall::eMakeWritableForAll, "makeWritableForAll (opened)")
               ? -1
               : CFileOps::makeWritableForAll(file);
}

int FileOpsFake::unlink(const char* path) {
    return fails(FileCall::eUnlink, "unlink " + shortName(path)) ? -1 : CFileOps::unlink(path);
}

int FileOpsFake::link(const char* path, const char* newPath) {
    return fails(FileCall::eLink, "link " + shortName(path) + " " + shortName(newPath))
               ? -1
               : CFileOps::link(path, newPath);
}

int FileOpsFake::rename(const char* path, const char* newPath) {
    return fails(FileCall::eRename, "rename " + shortName(path) + " " + shortName(newPath))
               ? -1
               : CFileOps::rename(path, newPath);
}

int FileOpsFake::exchange(const char* path, const char* other) {
    return fails(FileCall::eExchange, "exchange " + shortName(path) + " " + shortName(other))
               ? -1
               : CFileOps::exchange(path, other);
}

int FileOpsFake::sendOut(const COpenFile& file) {
    return fails(FileCall::eSendOut, "sendOut") ? -1 : CFileOps::sendOut(file);
}

int FileOpsFake::syncData(const COpenFile& file) {
    return fails(FileCall::eSyncData, "syncData") ? -1 : CFileOps::syncData(file);
}

int FileOpsFake::syncNames(const char* path) {
    return fails(FileCall::eSyncNames, "syncNames " + shortName(path)) ? -1
                                                                       : CFileOps::syncNames(path);
}

int FileOpsFake::copySynced(const char* path, const char* newPath) {
    return fails(FileCall::eCopy, "copySynced " + shortName(path) + " " + shortName(newPath))
               ? -1
               : CFileOps::copySynced(path, newPath);
}

bool FileOpsFake::exists(const char* path) {
    return !fails(FileCall::eExists, "exists " + shortName(path)) && CFileOps::exists(path);
}

}  // namespace vqtest
