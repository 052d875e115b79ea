#ifndef ABSTRACTIONLIBRARY_TCPSOCKET_H
#define ABSTRACTIONLIBRARY_TCPSOCKET_H

#include <cstddef>

#include <abstractionlibrary/export.h>
#include <abstractionlibrary/types.h>

namespace VorelKestrel { namespace AL {

class TCPSocketPrivate; // defined in the source

/**
 * A connected TCP stream over IPv4: raw bytes, and integers of fixed size. Each call is one blocking system call,
 * without timeout, retry or loop over partial transfers.
 *
 *            | send, receive | close()      | destructor
 *     closed | stops the     | stops the    | allowed
 *            | process       | process      |
 *     open   | transfers     | closed       | stops the process: close() first
 *
 * Threads:   one thread may send while another receives. close() and the destructor run alone.
 * Ownership: owns the connection until close(); the buffers stay the caller's and are not kept.
 * Units:     lengths are bytes. Integers travel big-endian (network byte order).
 * Errors:    by the results only; errno is what the system call left. Sending on a connection that the peer has
 *            closed raises SIGPIPE, which ends the process unless it ignores that signal. Only the constructor
 *            throws, the allocator's exception.
 *
 * A peer that is silent blocks receive() without limit, and close() from another thread does not wake it. Give each
 * peer a thread, or use sockets of your own where that is too much.
 */
class AUTHCHIPDRIVER_API TCPSocket
{
public:
    /// Creates a closed socket. Connections come from TCPClientSocket::connect() and TCPServer::accept().
    TCPSocket();
    /// Requires: the socket is closed. The destructor never closes it.
    ~TCPSocket();
    TCPSocket(const TCPSocket&) = delete;
    TCPSocket& operator=(const TCPSocket&) = delete;

    /**
     * Sends bytes. Requires: the socket is open.
     *
     * @param data    The bytes.
     * @param length  How many.
     * @return How many were sent, which can be fewer; the largest size_t value on an error.
     */
    std::size_t send(const void* data, std::size_t length);
    /**
     * Receives bytes; waits for the first. Requires: the socket is open.
     *
     * @param data    Receives the bytes; has room for @p length of them.
     * @param length  How many at most.
     * @return How many came; 0 when the peer has closed; the largest size_t value on an error.
     */
    std::size_t receive(void* data, std::size_t length);

    /**
     * Sends 1 byte. Requires: the socket is open.
     *
     * @param value  The byte.
     * @return True if it was sent.
     */
    bool sendU8(U8 value);
    /**
     * Sends 2 bytes, the highest first. Requires: the socket is open.
     *
     * @param value  The number, in host byte order.
     * @return True only if both were sent.
     */
    bool sendU16(U16 value);
    /**
     * Sends 4 bytes, the highest first. Requires: the socket is open.
     *
     * @param value  The number, in host byte order.
     * @return True only if all were sent.
     */
    bool sendU32(U32 value);

    /**
     * Receives 1 byte; waits for it. Requires: the socket is open.
     *
     * @param value  Receives the byte.
     * @return True if it came.
     */
    bool receiveU8(U8& value);
    /**
     * Receives 2 bytes, the highest first; waits for the first of them. Requires: the socket is open.
     *
     * @param value  Receives the number, in host byte order. After false it may hold the byte of a short read.
     * @return True only if both came in one piece. After false the stream is out of step, since the byte of a short
     *         read is lost: close it.
     */
    bool receiveU16(U16& value);
    /**
     * Receives 4 bytes, the highest first; waits for the first of them. Requires: the socket is open.
     *
     * @param value  Receives the number, in host byte order. After false it may hold the bytes of a short read.
     * @return True only if all came in one piece; after false as receiveU16().
     */
    bool receiveU32(U32& value);

    /// Closes the connection. Requires: the socket is open.
    void close();

protected:
    /// The connection. Owned; never null from constructor to destructor.
    // NOLINTNEXTLINE(misc-non-private-member-variables-in-classes): the client puts its connection in.
    TCPSocketPrivate* m_data;

    friend class TCPServer; // puts the accepted connection in
};

/**
 * A TCPSocket that connects to a server.
 *
 * Threads, ownership, units, errors: as TCPSocket.
 * Linking:   the program also needs the library's hook: see authchipdriver/dbglog.h.
 * @par Example
 * @snippet reference/tcpsocket.cpp client
 */
class AUTHCHIPDRIVER_API TCPClientSocket : public TCPSocket
{
public:
    /// Creates a closed socket.
    TCPClientSocket();

    /**
     * Connects to a server. Waits as long as the system does. Requires: the socket is closed.
     *
     * @param ip    A dotted-quad IPv4 address ("192.168.0.7"). Host names are not looked up.
     * @param port  The port, in host byte order.
     * @return False if the connection cannot be made. The socket is then closed, and may be connected again.
     */
    bool connect(const char* ip, U16 port);
};

/**
 * A listening TCP socket on all IPv4 interfaces that hands out a TCPSocket per accepted connection.
 *
 *            | listen()                | accept()          | close()  | destructor
 *     closed | open, or stays closed   | stops the process | stops    | allowed
 *            | and returns false       |                   | the      |
 *            |                         |                   | process  |
 *     open   | stops the process       | waits, hands out  | closed   | stops the process: close() first
 *
 * Threads:   accept() may run in several threads at once; the other operations and the destructor run alone.
 * Ownership: owns the listening socket until close(). The sockets that accept() returns are the caller's.
 * Errors:    by the results only; errno is what the system call left. Only the allocator's exception is thrown (by the
 *            constructor, and by accept(), which then has closed the connection).
 *
 * accept() has no timeout, and close() from another thread does not wake it. To end a server, tell it to stop and then
 * connect to it once, as the example does.
 * Linking:   the program also needs the library's hook: see authchipdriver/dbglog.h.
 * @par Example
 * @snippet reference/tcpsocket.cpp server
 */
class AUTHCHIPDRIVER_API TCPServer
{
public:
    /// Creates a closed server.
    TCPServer();
    /// Requires: the server is closed. The destructor never closes it.
    ~TCPServer();
    TCPServer(const TCPServer&) = delete;
    TCPServer& operator=(const TCPServer&) = delete;

    /**
     * Listens on all interfaces, with room for 10 connections that wait for accept(). Requires: the server is closed.
     *
     * @param port  The port, in host byte order.
     * @return False if the port is taken; it stays taken for a while by the connections of an earlier run. The server
     *         is then closed, and may listen again.
     */
    bool listen(U16 port);
    /**
     * Waits without limit for a connection. Requires: the server is open.
     *
     * @return A new open socket, which the caller closes and then deletes; null on an error.
     */
    TCPSocket* accept();
    /// Stops listening; connections that were accepted live on. Requires: the server is open.
    void close();

private:
    TCPSocketPrivate* m_data; // owned; never null from constructor to destructor
};

}} // namespace VorelKestrel::AL

#endif
