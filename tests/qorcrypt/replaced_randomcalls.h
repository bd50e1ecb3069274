// The system calls of the random generator, broken on purpose.
#pragma once

#include <cstddef>

struct RandomCalls {
    int openInterrupts = 0; // so many calls fail with EINTR first
    bool opens = true;
    bool isDevice = true;
    int readInterrupts = 0;
    bool reads = true;            // otherwise read fails
    std::size_t readLimit = 4096; // what a call reads at most; 0 is an end of file
    bool fixedSeed = false;       // the bytes 0, 1, 2...
    bool kernelWipes = true;      // the state in child processes, where the kernel can
    int openCount = 0;            // those that succeeded
    int closeCount = 0;
    int openFlags = 0;
};

extern RandomCalls randomCalls;
