#include "qoros_internal.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <memory>

#include "qoros_cmdline.h"

static_assert(sizeof(QorOsProcess) == 8 && offsetof(QorOsProcess, status) == 4);

namespace {

// The exit code of a process that could not become its program.
constexpr int dExecFailed = 127;

// What runs scripts.
constexpr char cpszShell[] = "/bin/sh";

struct HeapDeleter {
    void operator()(void* pv) const {
        vFree(pv);
    }
};
using HeapText = std::unique_ptr<char, HeapDeleter>;

// Waits for a process whatever signals arrive. Ids that stand for groups, or for all children, are
// refused.
pid_t dWaitFor(pid_t dPid, int32_t* pdStatus, int dOptions) {
    if (dPid <= 0) {
        errno = ECHILD;
        return -1;
    }
    pid_t dResult;
    do {
        dResult = waitpid(dPid, pdStatus, dOptions);
    } while (dResult == -1 && errno == EINTR);
    return dResult;
}

// All that a new process needs to become its program, made before the fork. In the child of a
// program with threads only those functions may be called that a signal handler may call, since
// another thread may have held any lock at the moment of the fork. execvp is none of them, so the
// search of the program is made here, in the same way.
class Program {
public:
    explicit Program(const char* cpszLine) : vector(parseProcessCommandline(cpszLine)) {
        if (vector) {
            vPrepareSearch(*vector);
        }
    }

    // Only for the child. What was not made for want of memory ends it, too.
    [[noreturn]] void vBecome() {
        if (fPath) {
            vExecute(*vector);
        } else if (directories && candidate) {
            vSearch(*vector);
        }
        _exit(dExecFailed);
    }

private:
    void vPrepareSearch(const char* cpszName) {
        fPath = strchr(cpszName, '/') != nullptr;
        const size_t dName = strlen(cpszName);
        if (fPath || dName == 0) {
            return; // an empty name is found nowhere
        }
        // Another thread that changes it meanwhile is the program's own concern.
        const char* const cpszPath = getenv("PATH"); // NOLINT(concurrency-mt-unsafe)
        if (cpszPath != nullptr) {
            directories.reset(strdup(cpszPath));
        } else {
            const size_t dSize = confstr(_CS_PATH, nullptr, 0);
            directories.reset(static_cast<char*>(calloc(dSize + 1, 1)));
            if (directories) {
                confstr(_CS_PATH, directories.get(), dSize);
            }
        }
        if (directories) {
            candidate.reset(static_cast<char*>(malloc(strlen(directories.get()) + 1 + dName + 1)));
        }
    }

    // An empty element is the working directory, also at the end.
    void vSearch(const char* cpszName) {
        for (const char* cp = directories.get();; ++cp) {
            const size_t dLength = strcspn(cp, ":");
            char* cpEnd = candidate.get();
            memcpy(cpEnd, cp, dLength);
            cpEnd += dLength;
            if (dLength > 0) {
                *cpEnd++ = '/';
            }
            memcpy(cpEnd, cpszName, strlen(cpszName) + 1);
            vExecute(candidate.get());
            cp += dLength;
            if (*cp == '\0' || !fSearchGoesOn(errno)) {
                return;
            }
        }
    }

    // Whether the error says that the program may stand in a later directory.
    static bool fSearchGoesOn(int dError) {
        switch (dError) {
        case EACCES:
        case ENAMETOOLONG:
        case ENODEV:
        case ENOENT:
        case ENOTDIR:
        case ESTALE:
        case ETIMEDOUT:
            return true;
        default:
            return false;
        }
    }

    // Comes back only on failure. What the system can't execute is given to the shell as a script.
    void vExecute(char* cpszProgram) {
        char** const ppsz = vector.get();
        execv(cpszProgram, ppsz + 1);
        if (errno == ENOEXEC) {
            ppsz[0] = const_cast<char*>(cpszShell);
            ppsz[1] = cpszProgram;
            execv(cpszShell, ppsz);
            _exit(dExecFailed);
        }
    }

    CommandLine vector;
    HeapText directories; // none where the program is not searched
    HeapText candidate;
    bool fPath = false;
};

uint32_t dStartWatched(const char* cpszLine, QorOsProcess** ppstOut) {
    auto* const pst = static_cast<QorOsProcess*>(calloc(1, sizeof(QorOsProcess)));
    if (pst == nullptr) {
        return 0;
    }
    *ppstOut = pst;
    Program program(cpszLine);
    const pid_t dPid = fork();
    if (dPid == 0) {
        program.vBecome();
    }
    if (dPid < 0) {
        vFree(pst); // kept: the output still points there
        return 0;
    }
    pst->pid = static_cast<uint32_t>(dPid);
    return 1;
}

// Starts the program from a process of its own session that ends at once. The system then adopts
// the program, and the caller never has to wait for it.
[[noreturn]] void vDetach(Program& program) {
    setsid();
    const pid_t dPid = fork();
    if (dPid == 0) {
        program.vBecome();
    }
    _exit(dPid < 0 ? dExecFailed : 0);
}

uint32_t dStartDetached(const char* cpszLine) {
    Program program(cpszLine);
    const pid_t dMiddle = fork();
    if (dMiddle == 0) {
        vDetach(program);
    }
    int32_t dStatus = 0;
    if (dMiddle < 0 || dWaitFor(dMiddle, &dStatus, 0) < 0) {
        return 0;
    }
    if (!WIFEXITED(dStatus) || dExitCode(dStatus) != 0) {
        errno = EAGAIN; // the cause itself stays with the process in the middle
        return 0;
    }
    return 1;
}

} // namespace

uint32_t QorOsCreateProcessAsyn(const char* commandLine, const void*, QorOsProcess** process) {
    if (commandLine == nullptr) {
        return 0;
    }
    return process != nullptr ? dStartWatched(commandLine, process) : dStartDetached(commandLine);
}

uint32_t QorOsProcessIsRunning(QorOsProcess* process) {
    if (process == nullptr) {
        return 0;
    }
    const pid_t pid = static_cast<pid_t>(process->pid);
    if (pid <= 0) {
        return 0;
    }
    if (dWaitFor(pid, &process->status, WNOHANG) > 0) {
        process->pid = 0;
        return 0;
    }
    return 1; // kept: also where it is no child of this process
}

uint32_t QorOsProcessWait(QorOsProcess* process, uint32_t* exitStatus) {
    if (process == nullptr) {
        return 0;
    }
    const std::unique_ptr<QorOsProcess, HeapDeleter> released(process);
    if (process->pid != 0 && dWaitFor(static_cast<pid_t>(process->pid), &process->status, 0) < 0) {
        return 0;
    }
    vSetOutput(exitStatus, dExitCode(process->status)); // kept: 0 where a signal ended the process
    return 1;
}

uint32_t QorOsTerminateProcess(QorOsProcess* process) {
    return QorOsProcessIsRunning(process) != 0 &&
                   kill(static_cast<pid_t>(process->pid), SIGTERM) == 0
               ? 1
               : 0;
}

uint32_t QorOsCloseHdl(uint32_t descriptor) {
    return close(static_cast<int>(descriptor)) == 0 ? 1 : 0;
}
