#include "qoros_internal.h"

#include <dlfcn.h>
#include <unistd.h>
#if defined(__APPLE__)
#include <mach-o/dyld.h>
#endif

#include <climits>
#include <cstring>

namespace {

// Reads the path of the running program. Returns 0 or the error.
int dReadProgramPath(char (&szOut)[PATH_MAX]) {
#if defined(__APPLE__)
    uint32_t dSize = sizeof szOut;
    return _NSGetExecutablePath(szOut, &dSize) == 0 ? 0 : ENAMETOOLONG;
#else
    char szLink[32];
    sprintf_qor(szLink, sizeof szLink, "/proc/%u/exe", dProcessId());
    const ssize_t dLength = readlink(szLink, szOut, sizeof szOut);
    if (dLength < 0) {
        return errno;
    }
    if (static_cast<size_t>(dLength) >= sizeof szOut) {
        return ENAMETOOLONG; // it may have been cut, and has no room for its terminator
    }
    szOut[dLength] = '\0';
    return 0;
#endif
}

int dModuleFileName(char* cpPath, uint32_t dPathSize, char* cpName, uint32_t dNameSize) {
    // Read into a buffer of its own, so that a failure leaves those of the caller alone.
    char szFull[PATH_MAX];
    const int error = dReadProgramPath(szFull);
    if (error != 0) {
        return error;
    }
    if (strlen(szFull) >= dPathSize) {
        return ENAMETOOLONG;
    }
    char* const cpSlash = strrchr(szFull, '/');
    if (cpSlash == nullptr) {
        return EINVAL;
    }
    if (cpName != nullptr) {
        strcpy_qor(cpName, dNameSize, cpSlash + 1);
    }
    // Kept: without the slash, so that the root directory is an empty text.
    *cpSlash = '\0';
    strcpy_qor(cpPath, dPathSize, szFull);
    return 0;
}

// Kept: also where the loader was not called, so that the text is that of an earlier failure or
// null.
void* pvOrError(void* pvResult, const char** ppszError) {
    if (pvResult == nullptr && ppszError != nullptr) {
        *ppszError = dlerror(); // NOLINT(concurrency-mt-unsafe): its state is per thread
    }
    return pvResult;
}

} // namespace

void* QorOsDlLoad(const char* path) {
    return path == nullptr || *path == '\0' ? nullptr : dlopen(path, RTLD_LAZY);
}

void* QorOsDlLoadEx(const char* path, const char** error) {
    return pvOrError(QorOsDlLoad(path), error);
}

void* QorOsDlGetAddr(void* handle, const char* name) {
    return handle == nullptr || name == nullptr || *name == '\0' ? nullptr : dlsym(handle, name);
}

void* QorOsDlGetAddrEx(void* handle, const char* name, const char** error) {
    return pvOrError(QorOsDlGetAddr(handle, name), error);
}

uint32_t QorOsDlFree(void* handle) {
    return handle == nullptr || dlclose(handle) == 0 ? 1 : 0;
}

uint32_t QorOsGetComputerName(char* buffer, uint32_t* size) {
    if (buffer == nullptr || size == nullptr) {
        return 0;
    }
    const uint32_t room = *size;
    const bool failed = gethostname(buffer, room) != 0;
    // A system may call a cut name a success.
    const bool cut =
        failed ? errno == EINVAL || errno == ENAMETOOLONG : strnlen(buffer, room) == room;
    if (cut && room > 0) {
        buffer[room - 1] = '\0';
    }
    if (failed || room == 0) {
        return 0;
    }
    buffer[strcspn(buffer, ".")] = '\0';
    *size = static_cast<uint32_t>(strlen(buffer));
    return 1;
}

uint32_t QorOsGetModuleFileName(char* path, uint32_t pathSize, char* name, uint32_t nameSize,
                                uint32_t* error) {
    if (path == nullptr) {
        return 0;
    }
    const int result = dModuleFileName(path, pathSize, name, nameSize);
    errno = result; // kept: a success clears it
    vSetOutput(error, static_cast<uint32_t>(result));
    return result == 0 ? 1 : 0;
}

uint32_t QorOsGetModulePath(char* path, uint32_t size, uint32_t* error) {
    return QorOsGetModuleFileName(path, size, nullptr, 0, error);
}
