// F1, the plain way to write a query by hand: a robust mutex that all processes share, the stamp
// compared, one ordered map of strings for the values of each key, the data copied out.
#include <pthread.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <map>

#include "floors/SessionLock.h"
#include "support/Contest.h"

namespace {

using bench::Data;

class SharedMutex {
public:
    explicit SharedMutex(const std::string& directory) : m_mutex(directory + "/mutex") {}

    // By whoever makes the store.
    void initialise() {
        pthread_mutexattr_t kind;
        pthread_mutexattr_init(&kind);
        pthread_mutexattr_setpshared(&kind, PTHREAD_PROCESS_SHARED);
        pthread_mutexattr_setrobust(&kind, PTHREAD_MUTEX_ROBUST);
        bench::require(pthread_mutex_init(&*m_mutex, &kind) == 0, "no mutex");
        pthread_mutexattr_destroy(&kind);
    }
    void lock() {
        if (pthread_mutex_lock(&*m_mutex) == EOWNERDEAD) {
            pthread_mutex_consistent(&*m_mutex);
        }
    }
    void unlock() { pthread_mutex_unlock(&*m_mutex); }

private:
    bench::Shared<pthread_mutex_t> m_mutex;
};

std::string folded(const char* name) {
    std::string text = name;
    for (char& letter : text) {
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    }
    return text;
}

class OrderedMap {
public:
    static void make(const Data&, const std::string& directory) {
        SharedMutex(directory).initialise();
    }

    OrderedMap(const Data& data, const std::string& directory)
        : m_mutex(directory), m_stamp(directory), m_keys(data.keys()) {
        for (std::size_t value = 0; value < data.values(); ++value) {
            m_keys[Data::keyOf(value)][folded(Data::nameOf(value))] = Data::numberOf(value);
        }
    }

    void openKeys() {}

    __attribute__((noinline)) std::uint32_t query(std::size_t value) {
        const Values& values = m_keys[Data::keyOf(value)];
        m_mutex.lock();
        const bool current = m_stamp.isMine();
        const auto found = values.find(folded(Data::nameOf(value)));
        const bool there = found != values.end();
        const std::uint32_t number = there ? found->second : 0;
        m_mutex.unlock();
        bench::require(current && there, "the floor cannot read changes");
        return number;
    }

private:
    using Values = std::map<std::string, std::uint32_t>;

    SharedMutex m_mutex;
    bench::Stamp m_stamp;
    std::vector<Values> m_keys;
};

}  // namespace

int main(int count, char** arguments) {
    return bench::contend<OrderedMap>(count, arguments);
}
