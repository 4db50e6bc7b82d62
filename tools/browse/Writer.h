// Makes edits in a process of their own.
#ifndef TOOLS_BROWSE_WRITER_H
#define TOOLS_BROWSE_WRITER_H

#include <sys/types.h>

#include <optional>
#include <string>

#include "tools/browse/Edits.h"
#include "tools/vqreg/base/FileHandle.h"
#include "tools/vqreg/store/StoreFile.h"

namespace vqreg {

// The process that shows the store never has it open: what others delete would come back with its next
// change, and a wait for the lock would hold up the screen. A child has it for one edit, and whatever
// happens to the child, the screen is in order.
class Writer {
public:
    Writer() = default;
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    // Only when the last one is over. Nothing is written where the store is not as the edit expects
    // it, and the exit code is 1. Throws CommandError where the system makes no process.
    void start(const StoreOptions& options, const Edit& edit);
    bool isBusy() const { return m_child > 0; }
    int fd() const {
        return m_messages ? m_messages->get() : -1;
    }  // readable when there is something to take

    pid_t child() const { return m_child; }  // 0 for none

    // Takes what the child says, "waiting for the lock of ..."; the exit code once it has ended, the
    // negated number of the signal for one that was ended.
    std::optional<int> take();
    bool hasSaidMore() const { return m_hasSaidMore; }  // at the last take
    // The last line that was said.
    const std::string& message() const { return m_message; }

    void cancel() const;  // ends it while it waits for the lock, and not in the middle of writing

private:
    pid_t m_child = 0;
    std::optional<FileHandle> m_messages;
    std::string m_said;
    std::string m_message;
    bool m_hasSaidMore = false;
};

}  // namespace vqreg

#endif  // TOOLS_BROWSE_WRITER_H
