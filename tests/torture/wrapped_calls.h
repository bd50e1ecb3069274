// What the wrappers ask and tell; see failing_calls.h.
#pragma once

namespace torture {

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
