#ifndef SORVANIC_PLATFORM_KERNEL_ANNOTATIONS_H
#define SORVANIC_PLATFORM_KERNEL_ANNOTATIONS_H

// Clang's thread-safety attributes under short names; nothing for other compilers.
// Every lock type, lock function and guarded field carries them, and the clang preset
// turns a breach into an error.

#if defined(__clang__)
#define K_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define K_THREAD_ATTRIBUTE(x)
#endif

#define K_CAPABILITY(name) K_THREAD_ATTRIBUTE(capability(name))
#define K_SCOPED_CAPABILITY K_THREAD_ATTRIBUTE(scoped_lockable)
#define K_GUARDED_BY(lock) K_THREAD_ATTRIBUTE(guarded_by(lock))
#define K_ACQUIRE(...) K_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define K_ACQUIRE_SHARED(...) K_THREAD_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define K_RELEASE(...) K_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define K_RELEASE_SHARED(...) K_THREAD_ATTRIBUTE(release_shared_capability(__VA_ARGS__))
#define K_NO_THREAD_SAFETY_ANALYSIS K_THREAD_ATTRIBUTE(no_thread_safety_analysis)

#endif
