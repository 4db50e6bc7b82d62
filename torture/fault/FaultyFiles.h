// A disk that counts what is asked of it and fails by plan, or ends the process there.
#ifndef VQTORTURE_FAULT_FAULTY_FILES_H
#define VQTORTURE_FAULT_FAULTY_FILES_H

#include <string>
#include <vector>

#include "fault/Plan.h"
#include "portable/FileOps.h"

namespace vqtorture {

/// What the file system under the store can do: which of the three ways of a replacement is taken.
enum class Place { eUsual, eNoLinks, eNeither };

/// Stands in for the system's file operations as long as it lives. One thread uses it.
class FaultyFiles : public VQRegLib::CFileOps {
public:
    explicit FaultyFiles(Place place);
    ~FaultyFiles() override;

    /// From now on calls are counted, and fail by the plans.
    void arm(std::vector<Plan> plans);
    /// The process ends before that call is done, or right after.
    void armDeath(std::size_t at, bool isAfterwards);
    void heal() { m_isArmed = false; }

    std::size_t calls() const { return m_calls; }
    /// The names of the calls that have failed, one after the other.
    const std::string& failed() const { return m_failed; }
    bool hasFailed(const char* name) const { return m_failed.find(name) != std::string::npos; }

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
    const Fault* next(const char* name, const std::vector<Fault>& faults);
    template <typename Call>
    auto perform(const char* name, const std::vector<Fault>& faults, Call&& call)
        -> decltype(call(nullptr));

    const Place m_place;
    bool m_isArmed = false;
    std::vector<Plan> m_plans;
    std::size_t m_calls = 0;
    std::string m_failed;
    bool m_mayDie = false;
    bool m_diesAfterwards = false;
    std::size_t m_deathAt = 0;
};

}  // namespace vqtorture

#endif  // VQTORTURE_FAULT_FAULTY_FILES_H
