// Operations of the library under calls that fail: each allocation and each call of a system
// function in turn, the first, the second, and so on until the operation runs through.
//
//     failEach({{"a value is added",
//                [] { Mif32 message; return message.AddInt(1, 2) ? 1 : 0; },
//                {{memory, ENOMEM, {0}}}}});
//
// The wrappers behind this stand between the objects of this program and the system (the linker's
// --wrap), so they work beside sanitizers. A call fails only on the thread that runs the operation,
// and in the processes that it forks.
#pragma once

#include <functional>
#include <vector>

namespace torture {

// In place of a function's name: malloc and its relatives, and new without exceptions.
constexpr char memory[] = "memory";

// In place of an error: the call moves a single byte.
constexpr int doesLess = -1;

struct Fault {
    const char* call; // name of the function
    int error;        // that its n-th call fails with, in errno or as its result
    // What the operation returns when the first, second, ... call fails; the last counts on.
    std::vector<int> results;
};

// An operation that returns 1 where nothing fails, and releases all that it takes.
struct Row {
    const char* name;
    std::function<int()> operation;
    std::vector<Fault> faults;
};

enum class Cause {
    untold,
    inErrno, // of an operation that returns 0: the error of the call
};

// Checks for each row and fault that it is reached, that the operation returns what it promises,
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

} // namespace torture
