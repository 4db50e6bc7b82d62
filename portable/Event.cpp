#include "portable/Event.h"

#include "portable/SemaphoreWait.h"

namespace VQRegLib {

CPEvent::CPEvent(int /*autoReset*/, const std::string& /*name*/, int /*create*/) : m_semaphore{} {
    sem_init(&m_semaphore, 0, 0);
}

CPEvent::~CPEvent() {
    sem_destroy(&m_semaphore);
}

void CPEvent::set(int /*reserved*/) {
    if (!m_isSet.exchange(true)) {
        sem_post(&m_semaphore);
    }
}

bool CPEvent::wait(unsigned long milliseconds, CTerminateWait* terminate) {
    if (!waitSemaphore(&m_semaphore, milliseconds, terminate)) {
        return false;
    }
    m_isSet.store(false);
    return true;
}

}  // namespace VQRegLib
