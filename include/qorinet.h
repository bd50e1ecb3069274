/**
 * @file qorinet.h
 * Sockets and the network clients as plain functions. Compiles as C11 and as C++17.
 *
 * Unless a declaration says otherwise the functions may be called from any thread.
 */
#pragma once

#include "qorapi.h"

QOR_BEGIN_C

/** @name Sockets @{ */

/**
 * Does nothing: socket start-up needs no work on POSIX systems. For callers written for platforms
 * where it does.
 */
QOR_API void QorInetInitWsa(void);

/**
 * Prepares a socket the way the network clients do: writing to a broken connection raises no
 * SIGPIPE (where the system has SO_NOSIGPIPE; elsewhere that is up to each send), and a close
 * resets the connection at once instead of lingering (SO_LINGER on, 0 s).
 * @param reuse not 0: also sets SO_REUSEADDR and SO_REUSEPORT
 * @return 1 when every option was set, otherwise 0; all are tried even after one has failed
 */
QOR_API int QorInetSetSockOpt(int sock, signed char reuse);

/** @} */

QOR_END_C
