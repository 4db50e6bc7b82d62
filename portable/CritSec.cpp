#include "portable/CritSec.h"

namespace VQRegLib {

CPCritSec::CPCritSec(const char* name, int flag) : m_mutex{}, m_pszName(name), m_nFlag(flag) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

bool CPCritSec::tryEnter(int location) {
    if (pthread_mutex_trylock(&m_mutex) != 0) {
        return false;
    }
    m_nLocation = location;
    ++m_nDepth;
    return true;
}

CPCritSec::~CPCritSec() {
    // An exception may have left the thread inside; destroying a locked mutex is undefined.
    if (pthread_mutex_trylock(&m_mutex) == 0) {
        for (++m_nDepth; m_nDepth > 0; --m_nDepth) {
            pthread_mutex_unlock(&m_mutex);
        }
    }
    pthread_mutex_destroy(&m_mutex);
}

void CPCritSec::enter(int location) {
    pthread_mutex_lock(&m_mutex);
    m_nLocation = location;
    ++m_nDepth;
}

void CPCritSec::leave(int location) {
    m_nLocation = -location;  // negative: left from there
    --m_nDepth;
    pthread_mutex_unlock(&m_mutex);
}

// It belongs to the thread that forked, under the number that this has in the parent; so the system
// refuses the child to leave it. (The sanitizer of threads, which knows the thread by another number,
// must see it left all the same.)
void CPCritSec::forgetInherited() {
    for (; m_nDepth > 0; --m_nDepth) {
        pthread_mutex_unlock(&m_mutex);
    }
    m_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
}

}  // namespace VQRegLib
