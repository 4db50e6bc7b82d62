// A process that has a file in its memory.
#ifndef VQTEST_MAPPING_CHILD_H
#define VQTEST_MAPPING_CHILD_H

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/ForkedChild.h"

namespace vqtest {

/// A child that maps files until it is destroyed.
class MappingChild {
public:
    /// @throws std::runtime_error when one cannot be mapped
    explicit MappingChild(const std::string& path) : MappingChild(std::vector{path}) {}
    explicit MappingChild(const std::vector<std::string>& paths)
        : m_child([&] {
              ::close(m_ready.in);
              const bool isMapped = std::all_of(paths.begin(), paths.end(), maps);
              while (isMapped && ::write(m_ready.out, "x", 1) == 1) {
                  ::pause();
              }
              return 1;
          }) {
        ::close(m_ready.out);
        char mark = 0;
        const bool isMapped = ::read(m_ready.in, &mark, 1) == 1;
        ::close(m_ready.in);
        if (!isMapped) {
            throw std::runtime_error("cannot map a file");
        }
    }

    pid_t pid() const { return m_child.pid(); }

private:
    struct Pipe {
        Pipe() {
            int ends[2];
            if (::pipe2(ends, O_CLOEXEC) != 0) {
                throw std::runtime_error("pipe2");
            }
            in = ends[0];
            out = ends[1];
        }
        int in = -1;
        int out = -1;
    };

    static bool maps(const std::string& path) {
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        return ::mmap(nullptr, 1, PROT_READ, MAP_SHARED, fd, 0) != MAP_FAILED;
    }

    Pipe m_ready;
    ForkedChild m_child;
};

}  // namespace vqtest

#endif  // VQTEST_MAPPING_CHILD_H
