// For one file of a program whose children, made while it has threads, start threads of their own.
#ifndef VQTEST_FORKS_WITH_THREADS_H
#define VQTEST_FORKS_WITH_THREADS_H

#if defined(__SANITIZE_THREAD__)
#define VQTEST_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VQTEST_THREAD_SANITIZER 1
#endif
#endif

#ifdef VQTEST_THREAD_SANITIZER
// NOLINTBEGIN(bugprone-reserved-identifier): the name that the sanitizer looks for
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "die_after_fork=0";
}
// NOLINTEND(bugprone-reserved-identifier)
#endif

#endif  // VQTEST_FORKS_WITH_THREADS_H
