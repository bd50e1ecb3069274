// Operations of the library under calls that fail: each allocation and each call of a system
// function in turn, the first, the second, and so on until the operation runs through.
//
//     failEach({{"a value is added",
//                [] { Mif32 message; return message.AddInt(1, 2) ? 1 : 0; },
//                "memory ENOMEM 0"}});
//
// The wrappers behind this stand between the objects of this program and the system (the linker's
// --wrap), so they work beside sanitizers. A call fails only on the thread that runs the operation,
// and in the processes that it forks.
#pragma once

#include <functional>
#include <vector>

namespace torture {

struct Row {
    const char* name;
    // Returns 1 where nothing fails, and releases all that it takes.
    std::function<int()> operation;
    // What fails, each alone, and what the operation then returns: "open EACCES 0, read EINTR 1".
    // The call is the name of a function, or "memory" for malloc and its relatives and for new
    // without exceptions. The error goes into errno, or is the function's result where that is its
    // way; "one-byte" is none, but a call that moves a single byte. Of several results the second
    // is for the second call, and so on.
    const char* faults;
};

enum class Cause {
    untold,
    inErrno, // of an operation that returns 0: the error of the call
};

// Checks for each fault that it is reached, that the operation returns what it promises,
// that no memory and no descriptor stays behind, and that no new that throws was called.
void failEach(const std::vector<Row>& rows, Cause cause = Cause::untold);

// The part of an operation that looks at what happened, or sets the stage: no call fails, and
// errno stays.
class Aside {
public:
    Aside();
    ~Aside();
    Aside(const Aside&) = delete;
    Aside& operator=(const Aside&) = delete;

private:
    const bool before_;
    const int error_;
};

// What the wrappers ask and tell.

// In place of an error: the call moves a single byte.
constexpr int doesLess = -1;

// The error that this call is to fail with, which is in errno as well, `doesLess`, or 0.
int errorOfThisCall(const char* call);

void noteThrowingNew();

// Counts memory of an operation; gives the address back.
void* noteAllocation(void* bytes);
// Counts it no more; false for memory from elsewhere.
bool noteRelease(void* bytes);

} // namespace torture
