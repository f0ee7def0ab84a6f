// The system's own names are defined here, so they must not be redirected to others.
#undef _FORTIFY_SOURCE
#undef _FILE_OFFSET_BITS

#include "faults/fault_points.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>

namespace tvx::faults {
namespace {

// Zero-initialised, as memory is asked for before anything is constructed.
thread_local bool inPlugin;
std::atomic<bool> armed;
std::atomic<Kind> armedKind;
std::atomic<unsigned> left;
std::atomic<bool> struck;

// What is done for the fault itself does not count.
struct Aside {
  const bool before = std::exchange(inPlugin, false);
  ~Aside() { inPlugin = before; }
};

// True, and errno set, when this call is to fail.
bool Fails(Kind kind, int error) {
  if (!inPlugin || !armed || armedKind != kind || left.fetch_sub(1) != 1) return false;
  struck = true;
  armed = false;
  errno = error;
  return true;
}

// The definition that is hidden by ours.
template <typename Function>
Function* Hidden(const char* name, Function* /*ours*/) {
  const Aside aside;
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void Arm(Kind kind, unsigned n) {
  armedKind = kind;
  left = n;
  struck = false;
  armed = true;
}

bool Disarm() {
  armed = false;
  return struck;
}

bool HasStruck() {
  return struck;
}

bool NoteSide(bool isInPlugin) {
  return std::exchange(inPlugin, isInPlugin);
}

}  // namespace tvx::faults

using tvx::faults::Fails;
using tvx::faults::Hidden;
using tvx::faults::Kind;

#define REPLACES extern "C" __attribute__((visibility("default")))

#if defined(__SANITIZE_ADDRESS__)

// The sanitizer's malloc stays; memory of ours is freed by its operator delete.
REPLACES const char* __asan_default_options() {
  return "alloc_dealloc_mismatch=0:detect_leaks=0";
}

void* operator new(std::size_t size) {
  void* memory = Fails(Kind::Allocation, ENOMEM) ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new[](std::size_t size) {
  return operator new(size);
}

#else

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
}

#define REPLACE_ALLOCATION(name, parameters, arguments)                         \
  REPLACES void* name parameters noexcept {                                     \
    return Fails(Kind::Allocation, ENOMEM) ? nullptr : __libc_##name arguments; \
  }
REPLACE_ALLOCATION(malloc, (std::size_t size), (size))
REPLACE_ALLOCATION(calloc, (std::size_t count, std::size_t size), (count, size))
REPLACE_ALLOCATION(realloc, (void* memory, std::size_t size), (memory, size))

#endif

// A call of the system, with what it returns when it fails.
#define REPLACE(kind, error, failed, type, name, parameters, arguments, throws) \
  REPLACES type name parameters noexcept(!throws) {                             \
    if (Fails(Kind::kind, error)) return failed;                                \
    return Hidden(#name, &name) arguments;                                      \
  }

REPLACE(Write, ENOSPC, -1, ssize_t, write, (int file, const void* bytes, std::size_t count),
        (file, bytes, count), true)
REPLACE(Write, ENOSPC, -1, ssize_t, writev, (int file, const iovec* pieces, int count),
        (file, pieces, count), true)
REPLACE(Open, ENOSPC, -1, int, mkdir, (const char* path, mode_t mode), (path, mode), false)
REPLACE(Open, EMFILE, nullptr, std::FILE*, fopen64, (const char* path, const char* mode),
        (path, mode), true)
REPLACE(Rename, EIO, -1, int, rename, (const char* from, const char* to), (from, to), false)
REPLACE(Remove, EIO, -1, int, unlink, (const char* path), (path), false)
REPLACE(Remove, EIO, -1, int, unlinkat, (int folder, const char* path, int flags),
        (folder, path, flags), false)
REPLACE(Remove, EIO, -1, int, remove, (const char* path), (path), false)

// A mode is passed on whether there is one or not.
#define REPLACE_OPEN(name, parameters, arguments)                           \
  REPLACES int name parameters {                                            \
    std::va_list rest;                                                      \
    va_start(rest, flags);                                                  \
    const auto mode = va_arg(rest, mode_t);                                 \
    va_end(rest);                                                           \
    return Fails(Kind::Open, EMFILE) ? -1 : Hidden(#name, &name) arguments; \
  }
REPLACE_OPEN(open64, (const char* path, int flags, ...), (path, flags, mode))
REPLACE_OPEN(openat64, (int folder, const char* path, int flags, ...), (folder, path, flags, mode))

REPLACES int __openat64_2(int folder, const char* path, int flags) {
  return openat64(folder, path, flags, mode_t{0});
}
