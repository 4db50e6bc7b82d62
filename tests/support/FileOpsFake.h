// A disk that keeps a record of what is asked of it and fails on order. For tests that see the
// library's inner headers.
#ifndef VQTEST_FILE_OPS_FAKE_H
#define VQTEST_FILE_OPS_FAKE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "portable/FileOps.h"

namespace vqtest {

enum class FileCall {
    eOpenForReading,
    eCreateForWriting,
    eRead,
    eWrite,
    eClose,
    eMakeWritableForAll,
    eUnlink,
    eLink,
    eRename,
    eExchange,
    eExists,
    eSendOut,
    eSyncData,
    eSyncNames,
    eCopy
};

/// Stands in for the system's file operations from its construction to its destruction. Use it
/// from one thread.
class FileOpsFake : public VQRegLib::CFileOps {
public:
    FileOpsFake();
    ~FileOpsFake() override;

    /// @name What is to go wrong; a later order for the same operation replaces an earlier one
    /// @{
    /// Lets the next `skip` calls through and fails all later ones with that errno.
    void fail(FileCall call, int error, int skip = 0);
    /// Throws std::bad_alloc from every call.
    void throwNoMemory(FileCall call);
    /// Throws std::runtime_error from every call.
    void throwOther(FileCall call);
    /// Reads work up to that many bytes of all; then there is a read error.
    void breakReadingAfter(std::size_t bytes, int error);
    /// Everything works again.
    void heal();
    /// @}

    /// The calls since the last `clear`, one text each: the operation and the file names without
    /// their directory, a temporary file's unique ending as "+".
    const std::vector<std::string>& calls() const { return m_calls; }
    int count(FileCall call) const;
    void clear();

    VQRegLib::COpenFile openForReading(const char* path) override;
    VQRegLib::COpenFile createForWriting(const char* path, std::uint64_t size) override;
    std::size_t read(void* buffer, std::size_t size, VQRegLib::COpenFile& file) override;
    std::size_t writePieces(std::span<const std::string_view> pieces,
                            const VQRegLib::COpenFile& file) override;
    int close(VQRegLib::COpenFile file) override;
    int makeWritableForAll(const char* path, bool* holdsText) override;
    int makeWritableForAll(const VQRegLib::COpenFile& file) override;
    int unlink(const char* path) override;
    int link(const char* path, const char* newPath) override;
    int rename(const char* path, const char* newPath) override;
    int exchange(const char* path, const char* other) override;
    bool exists(const char* path) override;
    int sendOut(const VQRegLib::COpenFile& file) override;
    int syncData(const VQRegLib::COpenFile& file) override;
    int syncNames(const char* path) override;
    int copySynced(const char* path, const char* newPath) override;

private:
    enum class Kind { eError, eNoMemory, eOther };
    struct Order {
        Kind kind = Kind::eError;
        int error = 0;
        int skip = 0;
    };

    /// Records the call. True when it is to fail; errno is set then.
    bool fails(FileCall call, const std::string& text);

    std::map<FileCall, Order> m_orders;
    std::map<FileCall, int> m_counts;
    std::vector<std::string> m_calls;
    bool m_breaksReading = false;
    std::size_t m_readableBytes = 0;
    int m_readError = 0;
};

}  // namespace vqtest

#endif  // VQTEST_FILE_OPS_FAKE_H
