// LoopbackSocket: a TCP socket with a port of its own on the loopback interface.
//
// The kernel gives the port to no other socket as long as the object exists. Connections to the
// port are refused unless the socket listens.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

class LoopbackSocket {
public:
    LoopbackSocket()
    {
        sockaddr_in address = addressOf(0);
        socklen_t length = sizeof address;
        EXPECT_EQ(0, bind(fd_, reinterpret_cast<sockaddr*>(&address), length));
        EXPECT_EQ(0, getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length));
        port_ = ntohs(address.sin_port);
    }
    LoopbackSocket(LoopbackSocket const&) = delete;
    LoopbackSocket& operator=(LoopbackSocket const&) = delete;
    ~LoopbackSocket() { close(fd_); }

    void listen(int backlog = 8) const { EXPECT_EQ(0, ::listen(fd_, backlog)); }

    int fd() const { return fd_; }
    uint16_t port() const { return port_; }
    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }

    /// Waits up to 10 ms for a client. Returns its socket, or -1.
    int accept() const
    {
        pollfd wait{fd_, POLLIN, 0};
        return poll(&wait, 1, 10) <= 0 ? -1 : accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
    }

    /// Connects to a server on the loopback interface, "127.0.0.1:PORT". Returns the socket.
    static int connectTo(std::string const& server)
    {
        int const fd = openSocket();
        int const port = atoi(server.substr(server.find(':') + 1).c_str());
        sockaddr_in const address = addressOf(static_cast<uint16_t>(port));
        EXPECT_EQ(0, connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address));
        return fd;
    }

private:
    static int openSocket() { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }

    static sockaddr_in addressOf(uint16_t port)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }

    int const fd_ = openSocket();
    uint16_t port_ = 0;
};
