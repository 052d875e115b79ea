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
 * Errors:    by the results only; errno is what the system call left. Writing to a connection that the peer has
 *            closed raises SIGPIPE unless the process ignores it. Nothing is thrown but the allocator's exception
 *            (by the constructor).
 */
class AUTHCHIPDRIVER_API TCPSocket
{
public:
    /// Makes a closed socket; connections come from TCPClientSocket::connect() and TCPServer::accept().
    TCPSocket();
    /// Requires: the socket is closed. The destructor never closes it.
    ~TCPSocket();
    TCPSocket(const TCPSocket&) = delete;
    TCPSocket& operator=(const TCPSocket&) = delete;

    /// Sends up to @p length bytes; returns how many were sent, or the largest size_t value on an error.
    std::size_t send(const void* data, std::size_t length);
    /// Receives up to @p length bytes into @p data, which has room for them; returns how many came, 0 when the peer
    /// has closed, or the largest size_t value on an error.
    std::size_t receive(void* data, std::size_t length);

    bool sendU8(U8 value);   ///< Sends 1 byte; true if it was sent.
    bool sendU16(U16 value); ///< Sends 2 bytes; true only if both were sent.
    bool sendU32(U32 value); ///< Sends 4 bytes; true only if all were sent.

    /// Receives 1 byte; true if it came.
    bool receiveU8(U8& value);
    /// Receives 2 bytes; true only if both came in one piece. On false @p value may hold the byte of a short read,
    /// which is lost to the stream: after false the stream is out of step, so close it.
    bool receiveU16(U16& value);
    /// Receives 4 bytes; true only if all came in one piece. Loses the bytes of a short read like receiveU16().
    bool receiveU32(U32& value);

    /// Closes the connection. Requires: the socket is open.
    void close();

protected:
    // NOLINTNEXTLINE(misc-non-private-member-variables-in-classes): the client puts its connection in.
    TCPSocketPrivate* m_data; // owned; never null from constructor to destructor

    friend class TCPServer; // puts the accepted connection in
};

/**
 * A TCPSocket that connects to a server.
 *
 * Threads, ownership, units, errors: as TCPSocket.
 */
class AUTHCHIPDRIVER_API TCPClientSocket : public TCPSocket
{
public:
    TCPClientSocket();

    /**
     * Connects to @p ip, a dotted-quad IPv4 address ("192.168.0.7"; host names are not looked up), and @p port, in
     * host byte order. Waits as long as the system does. Returns false, and leaves the socket closed, if the
     * connection cannot be made; it may be tried again. Requires: the socket is closed.
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
 * Errors:    by the results only; errno is what the system call left. Nothing is thrown but the allocator's exception
 *            (by the constructor and by accept(), which then has closed the connection).
 */
class AUTHCHIPDRIVER_API TCPServer
{
public:
    TCPServer();
    /// Requires: the server is closed. The destructor never closes it.
    ~TCPServer();
    TCPServer(const TCPServer&) = delete;
    TCPServer& operator=(const TCPServer&) = delete;

    /**
     * Listens on @p port (host byte order), with room for 10 connections that wait for accept(). Returns false, and
     * leaves the server closed, if the port is not to be had; a port that still has connections of an earlier run is
     * not taken over. Requires: the server is closed.
     */
    bool listen(U16 port);
    /// Waits without limit for a connection. Returns a new open socket that the caller closes and deletes, or null on
    /// an error. Requires: the server is open.
    TCPSocket* accept();
    /// Stops listening; connections that were accepted live on. Requires: the server is open.
    void close();

private:
    TCPSocketPrivate* m_data; // owned; never null from constructor to destructor
};

}} // namespace VorelKestrel::AL

#endif
