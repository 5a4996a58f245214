// SPDX-License-Identifier: ISC
// Interposes the calls that may block. Linked into the test programs, so that every test that
// processes audio is a real-time test as well.
#include "tests/support/audio_thread_guard.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

// The sanitizers interpose the same functions themselves; the release run does the checking.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QUILLWORKS_INTERPOSE 0
#else
#define QUILLWORKS_INTERPOSE 1
#endif

namespace {

thread_local int tDepth = 0;
thread_local const char* tViolation = nullptr;

[[maybe_unused]] void note(const char* call) noexcept
{
    if (tDepth > 0 && !tViolation) tViolation = call;
}

}  // namespace

namespace quillworks::test {

AudioThreadGuard::AudioThreadGuard() noexcept
{
    ++tDepth;
}

AudioThreadGuard::~AudioThreadGuard()
{
    if (--tDepth > 0) return;
    if (const char* call = takeViolation())
        ADD_FAILURE() << call << "() was called on the audio thread";
}

const char* AudioThreadGuard::takeViolation() noexcept
{
    const char* call = tViolation;
    tViolation = nullptr;
    return call;
}

}  // namespace quillworks::test

#if QUILLWORKS_INTERPOSE

// glibc's own entry points for the allocator, so that the interposed ones need no dlsym.
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);

void* malloc(std::size_t n)
{
    note("malloc");
    return __libc_malloc(n);
}
void* calloc(std::size_t n, std::size_t size)
{
    note("calloc");
    return __libc_calloc(n, size);
}
void* realloc(void* p, std::size_t n)
{
    note("realloc");
    return __libc_realloc(p, n);
}
void free(void* p)
{
    if (p) note("free");
    __libc_free(p);
}
void* aligned_alloc(std::size_t alignment, std::size_t n)
{
    note("aligned_alloc");
    return __libc_memalign(alignment, n);
}
void* memalign(std::size_t alignment, std::size_t n)
{
    note("memalign");
    return __libc_memalign(alignment, n);
}
int posix_memalign(void** p, std::size_t alignment, std::size_t n)
{
    note("posix_memalign");
    *p = __libc_memalign(alignment, n);
    return *p ? 0 : 12;
}
}

namespace {
/// The next definition of a function, looked up while no guard is active.
template <class F> F next(const char* name) noexcept
{
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}
}  // namespace

// Every interposed function has the form: note, then call the real one with the same arguments.
#define QUILLWORKS_FORWARD(result, name, parameters, arguments)                                    \
    extern "C" result name parameters                                                              \
    {                                                                                              \
        note(#name);                                                                               \
        static const auto real = next<result(*) parameters>(#name);                                \
        return real arguments;                                                                     \
    }

QUILLWORKS_FORWARD(int, pthread_mutex_lock, (pthread_mutex_t * m), (m))
QUILLWORKS_FORWARD(int, pthread_rwlock_rdlock, (pthread_rwlock_t * m), (m))
QUILLWORKS_FORWARD(int, pthread_rwlock_wrlock, (pthread_rwlock_t * m), (m))
QUILLWORKS_FORWARD(int, pthread_cond_wait, (pthread_cond_t * c, pthread_mutex_t* m), (c, m))
QUILLWORKS_FORWARD(int, pthread_create,
                   (pthread_t * t, const pthread_attr_t* a, void* (*f)(void*), void* p),
                   (t, a, f, p))
QUILLWORKS_FORWARD(int, sem_wait, (sem_t * s), (s))
QUILLWORKS_FORWARD(int, nanosleep, (const timespec* a, timespec* b), (a, b))
QUILLWORKS_FORWARD(int, usleep, (useconds_t t), (t))
QUILLWORKS_FORWARD(ssize_t, write, (int f, const void* p, std::size_t n), (f, p, n))
QUILLWORKS_FORWARD(ssize_t, read, (int f, void* p, std::size_t n), (f, p, n))
QUILLWORKS_FORWARD(int, close, (int f), (f))
QUILLWORKS_FORWARD(FILE*, fopen, (const char* p, const char* m), (p, m))
QUILLWORKS_FORWARD(int, puts, (const char* s), (s))
// Streams and loggers end here; the library's own call of write() goes past an interposed one.
QUILLWORKS_FORWARD(int, fputs, (const char* s, FILE* f), (s, f))
QUILLWORKS_FORWARD(std::size_t, fwrite, (const void* p, std::size_t n, std::size_t k, FILE* f),
                   (p, n, k, f))
QUILLWORKS_FORWARD(int, vfprintf, (FILE * f, const char* format, va_list a), (f, format, a))
#undef QUILLWORKS_FORWARD

extern "C" int fprintf(FILE* f, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int n = vfprintf(f, format, arguments);
    va_end(arguments);
    return n;
}

extern "C" int sched_yield() noexcept
{
    note("sched_yield");
    static const auto real = next<int (*)()>("sched_yield");
    return real();
}

extern "C" void* mmap(void* at, std::size_t n, int protection, int flags, int file,
                      off_t offset) noexcept
{
    note("mmap");
    static const auto real = next<void* (*)(void*, std::size_t, int, int, int, off_t)>("mmap");
    return real(at, n, protection, flags, file, offset);
}

extern "C" int munmap(void* at, std::size_t n) noexcept
{
    note("munmap");
    static const auto real = next<int (*)(void*, std::size_t)>("munmap");
    return real(at, n);
}

extern "C" int open(const char* path, int flags, ...)
{
    note("open");
    static const auto real = next<int (*)(const char*, int, ...)>("open");
    __builtin_va_list list;
    __builtin_va_start(list, flags);
    const int mode = __builtin_va_arg(list, int);
    __builtin_va_end(list);
    return real(path, flags, mode);
}

#endif
