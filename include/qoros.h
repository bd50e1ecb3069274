/**
 * @file qoros.h
 * The OS layer: state of the program, time, console keys, bounded strings, shared memory, logging,
 * threads, mutexes and events, files and directories, processes, dynamic loading.
 *
 * This header brings all of its parts; each also serves alone.
 *
 * Plain functions that the product's programs call instead of the operating system. Unless a
 * declaration says otherwise they may be called from any thread, and a truth value is 1 or 0. Where
 * the system refuses something the function that reports it leaves the cause in errno; a null
 * argument and a time-out leave none. Beside the mutexes and events that callers make, the layer
 * has a single lock, which starting and cancelling a thread take for as long as the system needs
 * for it. Compiles as C11 and as C++17.
 */
#pragma once

#include "qoros_base.h"
#include "qoros_file.h"
#include "qoros_log.h"
#include "qoros_mmf.h"
#include "qoros_module.h"
#include "qoros_process.h"
#include "qoros_string.h"
#include "qoros_sync.h"
#include "qoros_thread.h"
