#include "qoros_internal.h"

#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr char cpszSystemDirectories[] =
    "/sbin:/usr/sbin:/usr/local/sbin:/bin:/usr/bin:/usr/local/bin:";

// The characters that separate the pieces of a line for the shell.
constexpr char cpszSeparators[] = " \t\n";

constexpr char cpszBackground[] = " &";

// The longest command line, in characters.
constexpr size_t dMaxLine = 1024;

constexpr size_t dShellCommandSize = QOR_PATH_SIZE + dMaxLine + sizeof cpszBackground;

// In place of an exit status: nothing was run.
constexpr uint32_t dNotRun = 0xFFFFFFFF;

// Tries cpszName in each directory of a list, until cpPath holds the path of a program. Kept: a
// directory counts, too, and a path is cut where it is up to two characters too long.
bool fFindIn(const char* cpszList, const char* cpszName, char* cpPath) {
    const size_t dLongest = QOR_PATH_SIZE - strlen(cpszName);
    for (const char* cp = cpszList; *cp != '\0';) {
        const size_t dLength = strcspn(cp, ":");
        if (dLength <= dLongest) {
            strncpy_qor(cpPath, QOR_PATH_SIZE, cp, dLength);
            strcat_qor(cpPath, QOR_PATH_SIZE, "/");
            strcat_qor(cpPath, QOR_PATH_SIZE, cpszName);
            struct stat stStatus {};
            if (stat(cpPath, &stStatus) == 0 && (stStatus.st_mode & S_IXUSR) != 0) {
                return true;
            }
        }
        cp += dLength;
        cp += *cp == ':' ? 1 : 0; // nothing stands behind a separator that ends the list
    }
    return false;
}

// Writes what the shell is to run. False where the program is not found; szProgram then holds its
// name as it was given.
bool fShellCommand(const char* cpszLine, uint32_t dFlags, char (&szProgram)[QOR_PATH_SIZE],
                   char (&szOut)[dShellCommandSize]) {
    const char* const cpName = cpszLine + strspn(cpszLine, cpszSeparators);
    const size_t dName = strcspn(cpName, cpszSeparators);
    strncpy_qor(szProgram, sizeof szProgram, cpName, dName);
    if (QorOsdGetPath(szProgram) == 0) {
        return false;
    }
    const char* const cpSeparator = cpName + dName;
    const char* const cpszRest = cpSeparator + strspn(cpSeparator, cpszSeparators);
    sprintf_qor(szOut, sizeof szOut, "%s%s%s%s", szProgram, *cpszRest != '\0' ? " " : "", cpszRest,
                (dFlags & QOR_PROCESS_BACKGROUND) != 0 ? cpszBackground : "");
    return true;
}

// Runs a checked line. Returns the exit status.
uint32_t dRunLine(const char* cpszLine, uint32_t dFlags) {
    char szProgram[QOR_PATH_SIZE];
    char szCommand[dShellCommandSize];
    if (!fShellCommand(cpszLine, dFlags, szProgram, szCommand)) {
        QOROS_LOG(QOR_LOG_ERROR,
                  "ERROR QorOsCreateProcess: command (%s) cannot be found (pid=%u tid=%ld)",
                  szProgram, dProcessId(), dThreadId());
        return dNotRun;
    }
    int dResult = system(szCommand); // NOLINT(concurrency-mt-unsafe): safe on these systems
    const bool fCode = dResult != -1 && !WIFSIGNALED(dResult);
    const uint32_t dStatus = fCode ? dExitCode(dResult) : static_cast<uint32_t>(dResult);
    QOROS_LOG(QOR_LOG_TRACE, "TRACE QorOsCreateProcess: cmd execed: '%s'=%u (pid=%u tid=%ld)",
              szCommand, dStatus, dProcessId(), dThreadId());
    return dStatus;
}

// Why a line can't be run; null where it can. The copy holds as much of it as would be run.
const char* cpszFault(const char* cpszLine, const char* cpszCopy) {
    if (strlen(cpszLine) > dMaxLine) {
        return "too long";
    }
    return cpszCopy[strspn(cpszCopy, cpszSeparators)] == '\0' ? "empty" : nullptr;
}

uint32_t dRun(const char* cpszLine, uint32_t dFlags) {
    // Kept: of a line with all characters that are allowed the last one does not fit.
    char szCopy[dMaxLine];
    strcpy_qor(szCopy, sizeof szCopy, cpszLine);
    const char* const cpszWhy = cpszFault(cpszLine, szCopy);
    if (cpszWhy != nullptr) {
        QOROS_LOG(QOR_LOG_ERROR,
                  "ERROR QorOsCreateProcess: command line (%s) is %s (pid=%u tid=%ld)", cpszLine,
                  cpszWhy, dProcessId(), dThreadId());
        return dNotRun;
    }
    return dRunLine(szCopy, dFlags);
}

} // namespace

uint32_t QorOsCreateProcess(const char* commandLine) {
    return QorOsCreateProcessEx(commandLine, 0, nullptr);
}

uint32_t QorOsCreateProcessSw(const char* commandLine, uint32_t flags) {
    return QorOsCreateProcessEx(commandLine, flags, nullptr);
}

uint32_t QorOsCreateProcessEx(const char* commandLine, uint32_t flags, uint32_t* exitStatus) {
    const uint32_t status = dRun(commandLine == nullptr ? "" : commandLine, flags);
    vSetOutput(exitStatus, status);
    return status == 0 ? 1 : 0;
}

uint32_t QorOsdGetPath(char* name) {
    if (name == nullptr) {
        return 0;
    }
    const size_t length = strnlen(name, QOR_PATH_SIZE);
    if (length == QOR_PATH_SIZE) {
        return 0; // no text
    }
    if (strchr(name, '/') != nullptr) {
        return static_cast<uint32_t>(length);
    }
    char sought[QOR_PATH_SIZE];
    strcpy_qor(sought, sizeof sought, name);
    // Another thread that changes it meanwhile is the program's own concern.
    const char* const path = getenv("PATH"); // NOLINT(concurrency-mt-unsafe)
    if (fFindIn(cpszSystemDirectories, sought, name) ||
        (path != nullptr && fFindIn(path, sought, name))) {
        return static_cast<uint32_t>(strlen(name));
    }
    strcpy_qor(name, QOR_PATH_SIZE, sought);
    return 0;
}
