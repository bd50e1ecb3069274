// Memory for secrets: it is overwritten before it is released.
#pragma once

#include <cstddef>

namespace secret {

// Overwrites memory with zeros, also where the compiler sees that nobody reads them. It is weak, so
// that a test program of internals puts its own in its place and looks at what is overwritten.
void wipe(void* bytes, std::size_t size);

// Zeroed memory; null where it is short.
void* allocate(std::size_t size);

// Wipes and releases memory, also such as malloc gave; null is ignored.
void dispose(void* bytes, std::size_t size);

// Zeroed memory for as long as this lives; none where memory is short.
class Buffer {
public:
    explicit Buffer(std::size_t wanted) : memory(allocate(wanted)), count(wanted) {}
    ~Buffer() {
        dispose(memory, count);
    }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    explicit operator bool() const {
        return memory != nullptr;
    }
    unsigned char* bytes() const {
        return static_cast<unsigned char*>(memory);
    }
    char* text() const {
        return static_cast<char*>(memory);
    }
    std::size_t size() const {
        return count;
    }

private:
    void* memory;
    std::size_t count;
};

// Characters on the stack, uninitialised, which are overwritten at the end of their scope.
template <std::size_t count>
struct Text {
    Text() = default;
    ~Text() {
        wipe(chars, count);
    }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    char chars[count];
};

} // namespace secret
