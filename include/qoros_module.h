/**
 * @file qoros_module.h
 * The OS layer: loading libraries, the machine and the running program.
 * See qoros.h for what holds throughout the layer.
 */
#pragma once

#include "qorapi.h"

#include <stdint.h>

QOR_BEGIN_C

/**
 * @name Dynamic loading and the running program
 * Error texts belong to the system and are valid until the thread's next call of the dynamic
 * loader.
 * @{
 */

/**
 * Loads a shared library and resolves its functions when they are first called.
 * @param path as for dlopen; null and empty give null without a call of the loader
 * @return a handle, to be released with QorOsDlFree; null on failure
 */
QOR_API void* QorOsDlLoad(const char* path);

/**
 * QorOsDlLoad with a cause.
 * @param error receives the loader's text where the result is null, which is null, too, where the
 *        loader has none; may be null
 */
QOR_API void* QorOsDlLoadEx(const char* path, const char** error);

/**
 * Looks a symbol up.
 * @param handle null gives null
 * @param name null and empty give null
 * @return its address, valid while the library is loaded; null on failure
 */
QOR_API void* QorOsDlGetAddr(void* handle, const char* name);

/** QorOsDlGetAddr with a cause: `error` as for QorOsDlLoadEx. */
QOR_API void* QorOsDlGetAddrEx(void* handle, const char* name, const char** error);

/** Gives a library up. Returns 1, also for null; 0 where the loader reports an error. */
QOR_API uint32_t QorOsDlFree(void* handle);

/**
 * Gives the name of the machine up to its first ".".
 * @param buffer receives it; on failure what fits of the whole name, or nothing
 * @param size in bytes, room for the whole name and its terminator; receives the length of the
 *        short name on success only
 * @return 1; 0 with the cause in errno, and for null
 */
QOR_API uint32_t QorOsGetComputerName(char* buffer, uint32_t* size);

/**
 * Gives directory and file name of the running program. On Linux links are resolved, and behind the
 * name of a program that is no longer there stands " (deleted)"; on macOS the path is that of the
 * start.
 * @param path receives the directory without its trailing slash, so that the root is an empty text;
 *        unchanged on failure. Null gives 0 and changes nothing.
 * @param pathSize in bytes, room for the whole path, file name and terminator included
 * @param name receives the file name, cut to `nameSize - 1` bytes; unchanged on failure; may be
 *        null
 * @param nameSize in bytes
 * @param error receives errno, 0 on success; may be null
 * @return 1, with errno set to 0; 0 with ENAMETOOLONG where `pathSize` is too small, or with the
 *         error of the system
 */
QOR_API uint32_t QorOsGetModuleFileName(char* path, uint32_t pathSize, char* name,
                                        uint32_t nameSize, uint32_t* error);

/**
 * The directory of the running program: QorOsGetModuleFileName without a name.
 * @param size as `pathSize` there: room for the whole path, with the file name that is left out
 */
QOR_API uint32_t QorOsGetModulePath(char* path, uint32_t size, uint32_t* error);

/** @} */

QOR_END_C
