// Says which lock guards what, so that clang checks it (-Wthread-safety). Other compilers read nothing.
// Not for virtual functions: a function that says that it enters a lock may not be called with that lock
// entered, and the locks here may be entered again.
#ifndef PORTABLE_THREADANNOTATIONS_H
#define PORTABLE_THREADANNOTATIONS_H

#if defined(__clang__)
#define VQ_CHECKED(attribute) __attribute__((attribute))
#else
#define VQ_CHECKED(attribute)
#endif

// Classes: what is a lock, and what holds one for a scope.
#define CAPABILITY(kind) VQ_CHECKED(capability(kind))
#define SCOPED_CAPABILITY VQ_CHECKED(scoped_lockable)

// Members: the lock that must be held by who reads or writes them.
#define GUARDED_BY(lock) VQ_CHECKED(guarded_by(lock))

// Functions: what their caller must hold; what they take, perhaps, and let go of.
#define REQUIRES(...) VQ_CHECKED(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) VQ_CHECKED(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) VQ_CHECKED(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) VQ_CHECKED(release_capability(__VA_ARGS__))

// A function that the check cannot follow; a comment at its definition says why it is right.
#define NO_THREAD_SAFETY_ANALYSIS VQ_CHECKED(no_thread_safety_analysis)

#endif  // PORTABLE_THREADANNOTATIONS_H
