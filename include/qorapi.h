/**
 * @file qorapi.h
 * What every public header stands on: the export macro, the helpers for C linkage, the version.
 * Compiles as C11 and as C++17.
 */
#pragma once

/** Rises when programs have to be rebuilt. */
#define QORMON3_VERSION_MAJOR 3
/** Rises when something is added. */
#define QORMON3_VERSION_MINOR 0
/** Rises with every other release. */
#define QORMON3_VERSION_PATCH 0

/** Marks a declaration that the shared library exports; everything without it stays hidden. */
#define QOR_API __attribute__((visibility("default")))

/** Keeps a helper of an exported class out of the interface. */
#define QOR_LOCAL __attribute__((visibility("hidden")))

/** Lets the compiler check the arguments of a printf-like function against its format. */
#define QOR_PRINTF(formatIndex, firstArgument)                                                     \
    __attribute__((format(printf, formatIndex, firstArgument)))

#if defined(__cplusplus)
/** Begins declarations of C linkage; nothing for C programs. */
#define QOR_BEGIN_C extern "C" {
/** Ends them. */
#define QOR_END_C }
#else
#define QOR_BEGIN_C
#define QOR_END_C
#endif
