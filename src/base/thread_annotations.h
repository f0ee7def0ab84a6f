// Marks which lock guards what, for clang's thread-safety analysis (script/lint runs it).
// Other compilers see nothing.
#pragma once

#if defined(__clang__)
#define TVX_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define TVX_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(name) TVX_THREAD_ATTRIBUTE(capability(name))
#define SCOPED_CAPABILITY TVX_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(mutex) TVX_THREAD_ATTRIBUTE(guarded_by(mutex))
#define REQUIRES(...) TVX_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) TVX_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) TVX_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) TVX_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define RETURN_CAPABILITY(mutex) TVX_THREAD_ATTRIBUTE(lock_returned(mutex))
