// Between the program's objects and the system. For a call of NAME the linker takes __wrap_NAME,
// and the system's own is __real_NAME; see CMakeLists.txt.
#include "failing_calls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>

using torture::doesLess;
using torture::errorOfThisCall;
using torture::noteAllocation;
using torture::noteRelease;

// A function that fails with `failure` and errno.
#define WRAP(type, name, failure, parameters, arguments)                                           \
    type __real_##name parameters;                                                                 \
    type __wrap_##name parameters;                                                                 \
    type __wrap_##name parameters {                                                                \
        return errorOfThisCall(#name) != 0 ? failure : __real_##name arguments;                    \
    }

// One that returns its error.
#define WRAP_ERROR(name, parameters, arguments)                                                    \
    int __real_##name parameters;                                                                  \
    int __wrap_##name parameters;                                                                  \
    int __wrap_##name parameters {                                                                 \
        const int error = errorOfThisCall(#name);                                                  \
        return error != 0 ? error : __real_##name arguments;                                       \
    }

// One that moves up to `size` bytes and may do less.
#define WRAP_TRANSFER(name, parameters, arguments)                                                 \
    ssize_t __real_##name parameters;                                                              \
    ssize_t __wrap_##name parameters;                                                              \
    ssize_t __wrap_##name parameters {                                                             \
        const int error = errorOfThisCall(#name);                                                  \
        if (error != 0 && error != doesLess) {                                                     \
            return -1;                                                                             \
        }                                                                                          \
        size = error == doesLess && size > 1 ? 1 : size;                                           \
        return __real_##name arguments;                                                            \
    }

#define WRAP_ALLOCATION(name, parameters, arguments)                                               \
    void* __real_##name parameters;                                                                \
    void* __wrap_##name parameters;                                                                \
    void* __wrap_##name parameters {                                                               \
        return errorOfThisCall("memory") != 0 ? nullptr : noteAllocation(__real_##name arguments); \
    }

#define WRAP_THROWING_NEW(name)                                                                    \
    void* __real_##name(std::size_t size);                                                         \
    void* __wrap_##name(std::size_t size);                                                         \
    void* __wrap_##name(std::size_t size) {                                                        \
        torture::noteThrowingNew();                                                                \
        return __real_##name(size);                                                                \
    }

#define WRAP_RELEASE(name, parameters, arguments)                                                  \
    void __real_##name parameters;                                                                 \
    void __wrap_##name parameters;                                                                 \
    void __wrap_##name parameters {                                                                \
        noteRelease(bytes);                                                                        \
        __real_##name arguments;                                                                   \
    }

extern "C" {

WRAP_ALLOCATION(malloc, (std::size_t size), (size))
WRAP_ALLOCATION(calloc, (std::size_t count, std::size_t size), (count, size))
WRAP_ALLOCATION(strdup, (const char* text), (text))
WRAP_ALLOCATION(strndup, (const char* text, std::size_t size), (text, size))
WRAP_ALLOCATION(_ZnwmRKSt9nothrow_t, (std::size_t size, const std::nothrow_t& tag), (size, tag))
WRAP_ALLOCATION(_ZnamRKSt9nothrow_t, (std::size_t size, const std::nothrow_t& tag), (size, tag))
WRAP_THROWING_NEW(_Znwm)
WRAP_THROWING_NEW(_Znam)
WRAP_RELEASE(free, (void* bytes), (bytes))
WRAP_RELEASE(_ZdlPv, (void* bytes), (bytes))
WRAP_RELEASE(_ZdlPvm, (void* bytes, std::size_t size), (bytes, size))
WRAP_RELEASE(_ZdaPv, (void* bytes), (bytes))
WRAP_RELEASE(_ZdaPvm, (void* bytes, std::size_t size), (bytes, size))

void* __real_realloc(void* bytes, std::size_t size);
void* __wrap_realloc(void* bytes, std::size_t size);
void* __wrap_realloc(void* bytes, std::size_t size) {
    if (errorOfThisCall("memory") != 0) {
        return nullptr;
    }
    const bool counted = noteRelease(bytes);
    void* const grown = __real_realloc(bytes, size);
    if (counted || bytes == nullptr) {
        noteAllocation(grown);
    }
    return grown;
}

WRAP_TRANSFER(read, (int fd, void* bytes, std::size_t size), (fd, bytes, size))
WRAP_TRANSFER(write, (int fd, const void* bytes, std::size_t size), (fd, bytes, size))
WRAP_TRANSFER(send, (int fd, const void* bytes, std::size_t size, int flags),
              (fd, bytes, size, flags))
WRAP_TRANSFER(recv, (int fd, void* bytes, std::size_t size, int flags), (fd, bytes, size, flags))

WRAP(int, close, (__real_close(fd), -1), (int fd), (fd))
WRAP(int, closedir, (__real_closedir(dir), -1), (DIR * dir), (dir))
WRAP(int, connect, -1, (int fd, const sockaddr* to, socklen_t size), (fd, to, size))
WRAP(int, execv, -1, (const char* path, char* const* arguments), (path, arguments))
WRAP(int, fchown, -1, (int fd, uid_t user, gid_t group), (fd, user, group))
WRAP(int, fclose, (__real_fclose(file), -1), (FILE * file), (file))
WRAP(FILE*, fopen, nullptr, (const char* path, const char* mode), (path, mode))
WRAP(std::size_t, fwrite, 0, (const void* bytes, std::size_t size, std::size_t count, FILE* file),
     (bytes, size, count, file))
WRAP(pid_t, fork, -1, (), ())
WRAP(int, fstat, -1, (int fd, struct stat* out), (fd, out))
WRAP(int, fstatat, -1, (int fd, const char* path, struct stat* out, int flags),
     (fd, path, out, flags))
WRAP(int, ftruncate, -1, (int fd, off_t size), (fd, size))
WRAP(off_t, lseek, -1, (int fd, off_t offset, int from), (fd, offset, from))
WRAP(int, lstat, -1, (const char* path, struct stat* out), (path, out))
WRAP(void*, mmap, MAP_FAILED, (void* at, std::size_t size, int what, int how, int fd, off_t from),
     (at, size, what, how, fd, from))
WRAP(int, msync, -1, (void* at, std::size_t size, int flags), (at, size, flags))
WRAP(int, munmap, -1, (void* at, std::size_t size), (at, size))
WRAP(DIR*, opendir, nullptr, (const char* path), (path))
WRAP(int, poll, -1, (pollfd * list, nfds_t count, int limit), (list, count, limit))
WRAP(dirent*, readdir, nullptr, (DIR * dir), (dir))
WRAP(int, rmdir, -1, (const char* path), (path))
WRAP(int, semget, -1, (key_t key, int count, int flags), (key, count, flags))
WRAP(int, semop, -1, (int id, sembuf* list, std::size_t count), (id, list, count))
WRAP(void*, shmat, reinterpret_cast<void*>(-1L), (int id, const void* at, int flags),
     (id, at, flags))
WRAP(int, shmctl, -1, (int id, int command, shmid_ds* out), (id, command, out))
WRAP(int, shmdt, -1, (const void* at), (at))
WRAP(int, shmget, -1, (key_t key, std::size_t size, int flags), (key, size, flags))
WRAP(int, socket, -1, (int family, int type, int protocol), (family, type, protocol))
WRAP(int, stat, -1, (const char* path, struct stat* out), (path, out))
WRAP(int, unlink, -1, (const char* path), (path))
WRAP(int, utime, -1, (const char* path, const utimbuf* times), (path, times))
WRAP(pid_t, waitpid, -1, (pid_t process, int* status, int options), (process, status, options))

WRAP_ERROR(getaddrinfo,
           (const char* node, const char* service, const addrinfo* hints, addrinfo** list),
           (node, service, hints, list))
WRAP_ERROR(pthread_cond_init, (pthread_cond_t * object, const pthread_condattr_t* attributes),
           (object, attributes))
WRAP_ERROR(pthread_create,
           (pthread_t * thread, const pthread_attr_t* attributes, void* (*routine)(void*),
            void* argument),
           (thread, attributes, routine, argument))
WRAP_ERROR(pthread_mutex_init, (pthread_mutex_t * object, const pthread_mutexattr_t* attributes),
           (object, attributes))
WRAP_ERROR(pthread_mutexattr_init, (pthread_mutexattr_t * attributes), (attributes))
WRAP_ERROR(pthread_mutexattr_settype, (pthread_mutexattr_t * attributes, int type),
           (attributes, type))

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = static_cast<mode_t>((flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0);
    va_end(arguments);
    return errorOfThisCall("open") != 0 ? -1 : __real_open(path, flags, mode);
}

int __real_semctl(int id, int number, int command, ...);
int __wrap_semctl(int id, int number, int command, ...);
int __wrap_semctl(int id, int number, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*); // passed on, given or not
    va_end(arguments);
    return errorOfThisCall("semctl") != 0 ? -1 : __real_semctl(id, number, command, argument);
}

} // extern "C"
