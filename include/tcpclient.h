/**
 * @file tcpclient.h
 * The TCP stream client that the other network clients are built on.
 */
#pragma once

#include "qorapi.h"
#include "qoripaddr.h"

/** Options of TcpClient::SetOption and GetOption; none is acted on. */
enum TQorTcpClientOptions {
    QOR_TCPCLIENT_OPTION_NONE = 0 /**< stands for no option */
};

#pragma pack(push, 1)
/**
 * A blocking TCP connection: resolves a host, connects within a time-out, sends whole buffers and
 * receives with a time-out counted in waits of one second.
 *
 * Operations give 1 for success and 0 for failure; why one failed is told only by `lastError` and
 * `connected`. The peer's breaking away never raises SIGPIPE. There is no TLS: the "SSL" members
 * record a flag and encrypt nothing.
 *
 * An object is used by one thread at a time; different objects are independent. Each Connect runs a
 * short-lived thread, which has ended when the call returns.
 *
 * The layout is fixed and packed: members other than single bytes are unaligned, so copy their
 * values instead of binding references or pointers to them.
 */
class QOR_API TcpClient {
public:
    /** No socket, a time-out of 15 s, all else 0. */
    TcpClient();
    /** Disconnects. */
    ~TcpClient();
    TcpClient(const TcpClient&) = delete;
    TcpClient& operator=(const TcpClient&) = delete;

    /**
     * Connects to a host within `timeout` seconds for each address that is tried.
     * A numeric IPv4 or IPv6 text is taken as it is. A name is resolved, without a time limit of
     * its own; the first of its IPv4 addresses is tried, and only if there is none or it fails the
     * first of its IPv6 addresses. A socket that is still open is given up but not closed: call
     * Disconnect before.
     * @param host stored in `hostName`, cut to 127 characters (the whole text is resolved); may
     *        stand in that member itself; null gives 0 and changes nothing
     * @param serverPort the lower 16 bits count
     * @param useSsl stored in `ssl`
     * @return as below, for the last address that was tried; for a name that does not resolve 0
     *         with `lastError`, `ssl` and `port` unchanged
     */
    signed char Connect(const char* host, unsigned int serverPort, signed char useSsl);

    /**
     * Connects to an address within `timeout` seconds, or within 100 ms for a `timeout` of 0;
     * returns up to 100 ms later than the connection stands or fails. A connection that stands only
     * after the time-out is not kept. A signal that interrupts the system's connect makes the call
     * fail.
     * @return 0 with `lastError` 1 and no socket when the connection fails, or when the thread that
     *         keeps the time-out cannot be started; 0 with nothing else changed than `ssl`, `port`
     *         and `sock` when no socket can be made; 0 and nothing changed for a null `addr`. A
     *         failure leaves `connected` as it was unless the time-out was the reason.
     */
    signed char Connect(QorIpAddr* addr, unsigned int serverPort, signed char useSsl);

    /**
     * Shuts down and closes the socket, if one is open; bytes that the system has not sent yet may
     * be lost. Always 1.
     */
    signed char Disconnect();

    /**
     * Sends all of `data`, blocking as long as it takes.
     * On a socket that the caller has made non-blocking (O_NONBLOCK) or given a send time-out
     * (SO_SNDTIMEO), the system may refuse a send with EAGAIN. It is repeated at once, up to three
     * times in a call, and each time one byte earlier: up to three bytes in front of `data` are
     * read then, and perhaps sent. They have to be readable.
     * @return 1 also for a `len` of 0; 0 without a socket or as soon as sending fails, as it does
     *         when a signal interrupts it; how much was sent until then is not told
     */
    signed char Send(const unsigned char* data, unsigned int len);

    /**
     * Waits for bytes, up to `timeout` seconds, and reads what is there.
     * With a `timeout` of 0 it does not wait, and fails as timed out. A signal that ends
     * the wait fails it.
     * @param len in: the size of `buf` in bytes, at least 1 (with 0 and bytes waiting the call acts
     *        as for the peer's close); out: the bytes read, 0 after a time-out, an error
     *        of the read or the peer's close; otherwise unchanged
     * @return 1 with at least one byte; 0 without a socket, for a null `len`, without `connected`,
     *         when the wait fails, after a time-out (`lastError` 3), after an error of the read, or
     *         when the peer has closed its side. A time-out, the peer's close and a lost connection
     *         (ECONNRESET, ENOTCONN, ETIMEDOUT) clear `connected`; the socket stays open for
     *         Disconnect.
     */
    signed char Receive(unsigned char* buf, unsigned int* len);

    /**
     * Reads what is there without the wait of Receive: blocks, without a limit, until bytes come.
     * Despite its name it takes the bytes out of the stream. It does not ask for `connected`, knows
     * no time-out, and fails when a signal interrupts it; all else is as with Receive.
     */
    signed char Peek(unsigned char* buf, unsigned int* len);

    /**
     * The worker of Receive (wait 1) and Peek (wait 0).
     * @param flags of recv, see the system's manual
     */
    signed char receive(unsigned char* buf, unsigned int* len, unsigned int flags,
                        signed char wait);

    /**
     * Waits until there is something to receive: bytes, the peer's close, or an error.
     * @return 1 when there is; 0 after `seconds`, without a socket, and when a signal ends the wait
     */
    signed char WaitForReceive(unsigned int seconds);

    /**
     * Sets TCP_NOOPT (option 8) where the system has it and does nothing elsewhere; despite its
     * name it switches no keep-alive.
     */
    void SetKeepAlive();

    /** Sets `ssl` when connected, and returns whether it is; no handshake is made. */
    signed char StartSSL();
    /** Does nothing; always 1. */
    signed char sslInit();
    /** Does nothing; always 0. */
    signed char SetOption(TQorTcpClientOptions option, void* value, unsigned int len);
    /** Does nothing; always 0. */
    signed char GetOption(TQorTcpClientOptions option, void* value, unsigned int* len);

    /** What the thread beside a connect runs on the object `self`; not for callers. Returns null.
     */
    static void* connectThread(void* self);

    /** @name Members, in fixed order
     *  @{ */
    signed char ssl;         /**< as given to Connect, or 1 after StartSSL; never acted on */
    unsigned int timeout;    /**< seconds, for connect and receive; set directly by users */
    unsigned char connected; /**< 1 or 0; 0 does not say that the socket is closed */
    char hostName[128];      /**< the host last given to Connect as text */
    unsigned int port;       /**< of the last connect */
    /**
     * 0 none, 1 connect failed, 3 receive timed out. Only a receive sets it back to 0: it is 1 also
     * next to a connection over IPv6 that followed a failed one over IPv4.
     */
    unsigned int lastError;
    int sock;                  /**< the descriptor, -1 for none */
    unsigned int connecting;   /**< internal: 1 during the system's connect, 2 once it is cut */
    unsigned int watchdogDone; /**< internal: 1 when the thread beside a connect has ended */
    /** @} */
};
#pragma pack(pop)
