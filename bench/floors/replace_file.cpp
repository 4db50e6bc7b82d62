// F2, the floor of a change: the whole text with one write to a new file, and the steps by which it
// takes the old one's place. And R, the floor of reading a change: read the file and compare it with
// the last text.
#include <sys/file.h>

#include "floors/FileSteps.h"
#include "floors/SessionLock.h"
#include "floors/TextImage.h"
#include "support/Contest.h"

namespace {

using bench::Data;

class ReplacedFile {
public:
    static void make(const Data& data, const std::string& directory) {
        bench::writeFile(bench::floorPath(directory), bench::configText(data));
    }

    ReplacedFile(const Data& data, const std::string& directory)
        : m_path(bench::floorPath(directory)),
          m_stamp(directory),
          m_lock(directory + "/lock", O_RDWR | O_CREAT, 0600),
          m_image(data) {}

    void openKeys() { bench::readWhole(m_path, m_read); }

    void set(std::size_t value, std::uint32_t number) {
        m_image.set(value, number);
        bench::replaceFile(m_path, m_image.text());
        m_stamp.renew();
    }

    std::uint32_t query(std::size_t value) {
        if (!m_stamp.isMine()) {
            m_stamp.take();
            bench::readWhole(m_path, m_read);
            m_image.exchange(m_read);
        }
        return m_image.number(value);
    }

    // The lock that a change takes beside these steps.
    double special(const std::string& workload, long count) {
        if (workload != "lock") {
            return -1;
        }
        return bench::timed(count, [&] {
            bench::require(flock(m_lock.get(), LOCK_EX) == 0, "no lock");
            bench::require(flock(m_lock.get(), LOCK_UN) == 0, "the lock stays");
        });
    }

private:
    std::string m_path;
    bench::Stamp m_stamp;
    bench::Descriptor m_lock;
    bench::TextImage m_image;
    std::string m_read;
};

}  // namespace

int main(int count, char** arguments) {
    return bench::contend<ReplacedFile>(count, arguments);
}
