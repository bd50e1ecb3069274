/**
 * @file qorinet.h
 * Sockets and the network clients as plain functions, for programs that cannot use the classes.
 * Compiles as C11 and as C++17.
 *
 * Unless a declaration says otherwise the functions may be called from any thread. A handle stands
 * for one object of tcpclient.h or httpget.h, where all that these functions do is described; it is
 * used by one thread at a time. Every function takes a null handle, and then does nothing and gives
 * what its declaration says. Truth values are 1 and 0.
 */
#pragma once

#include "qorapi.h"

QOR_BEGIN_C

/** @name Sockets and dates
 *  @{ */

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

/**
 * Reads an HTTP date in any of the forms of StrToDate (httpvalue.h).
 * @return seconds since 1970-01-01 00:00:00 UTC; -1 where no form matches
 */
QOR_API long QorInetStrToDate(const char* text);

/** @} */

/**
 * @name Connections
 * A handle to a TcpClient.
 * @{
 */

/** Makes a connection object, to be released with QorInetTcpClientClose; null without memory. */
QOR_API void* QorInetTcpClientCreate(void);

/** Disconnects and releases the object. */
QOR_API void QorInetTcpClientClose(void* handle);

/** TcpClient::Connect to a host by name or address; 0 for a null handle. */
QOR_API int QorInetTcpClientConnect(void* handle, const char* host, unsigned int port,
                                    signed char useSsl);

/** TcpClient::Disconnect; 0 for a null handle. */
QOR_API int QorInetTcpClientDisconnect(void* handle);

/**
 * TcpClient::Receive; 0 for a null handle.
 * @param len in: the size of `buf` in bytes; out: the bytes read
 */
QOR_API int QorInetTcpClientReceive(void* handle, unsigned char* buf, unsigned int* len);

/** TcpClient::Send of `len` bytes; 0 for a null handle. */
QOR_API int QorInetTcpClientSend(void* handle, const unsigned char* data, unsigned int len);

/** TcpClient::WaitForReceive; 0 for a null handle. */
QOR_API int QorInetTcpClientWaitForReceive(void* handle, unsigned int seconds);

/**
 * The `connected` flag of the object, which a time-out of a receive clears although the socket is
 * still open; 0 for a null handle.
 */
QOR_API int QorInetTcpClientIsConnected(void* handle);

/** @} */

/**
 * @name Downloads
 * A handle to an HttpGet.
 * @{
 */

/**
 * Follows a download.
 * @param context as given with the callback
 * @param done bytes written so far
 * @param total bytes announced by the server; 0xFFFFFFFF where it announced none
 * @return 0 asks to abort
 */
typedef signed char (*HttpGetCallback)(void* context, unsigned int done, unsigned int total);

/** Makes a download object, to be released with QorInetHttpGetClose; null without memory. */
QOR_API void* QorInetHttpGetCreate(void);

/** Disconnects and releases the object. */
QOR_API void QorInetHttpGetClose(void* handle);

/**
 * Sets the proxy of the downloads to come.
 * @param host name or address of an HTTP proxy; an empty text switches the proxy off; a null one,
 *        or one of 128 characters and more, changes nothing, not even the port
 * @param port its port
 */
QOR_API void QorInetHttpGetSetProxy(void* handle, const char* host, unsigned int port);

/** HttpGet::SetProxyAuthentication. */
QOR_API void QorInetHttpGetSetProxyAuthentication(void* handle, const char* user,
                                                  const char* password);

/** HttpGet::HttpRequest; 0 for a null handle, `updated` being left alone. */
QOR_API int QorInetHttpGetHttpRequest(void* handle, const char* url, const char* destFile,
                                      signed char* updated);

/**
 * What the last failure was.
 * @return the object's `errorText`, valid as long as the handle and changed by later requests; an
 *         empty text for a null handle
 */
QOR_API const char* QorInetHttpGetGetErrStr(void* handle);

/** @} */

QOR_END_C
