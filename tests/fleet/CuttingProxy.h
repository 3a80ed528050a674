// CuttingProxy: passes the bytes of connections on, and cuts the first connection after some
// bytes in one direction.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class CuttingProxy {
public:
    enum Direction { toServer, toClient };

    CuttingProxy(Direction direction, size_t bytes)
        : cutAt_{SIZE_MAX, SIZE_MAX}, listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        cutAt_[direction] = bytes;
        sockaddr_in place = placeOf(0);
        EXPECT_EQ(0, bind(listener_, reinterpret_cast<sockaddr*>(&place), sizeof place));
        EXPECT_EQ(0, listen(listener_, 8));
        socklen_t length = sizeof place;
        getsockname(listener_, reinterpret_cast<sockaddr*>(&place), &length);
        port_ = ntohs(place.sin_port);
    }
    CuttingProxy(CuttingProxy const&) = delete;
    CuttingProxy& operator=(CuttingProxy const&) = delete;
    ~CuttingProxy()
    {
        isOver_ = true;
        if (acceptor_.joinable())
            acceptor_.join();
        for (std::thread& connection : connections_)
            connection.join();
        close(listener_);
    }

    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }

    /// Starts to pass connections on to "127.0.0.1:PORT".
    void serve(std::string const& server)
    {
        int const port = atoi(server.substr(server.find(':') + 1).c_str());
        acceptor_ = std::thread([this, port] { accept(port); });
    }

    /// Returns the bytes so far, of all connections.
    size_t passed(Direction direction) const { return passed_[direction]; }

private:
    static sockaddr_in placeOf(int port)
    {
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_port = htons(static_cast<uint16_t>(port));
        place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return place;
    }

    void accept(int port)
    {
        while (!isOver_) {
            pollfd wait{listener_, POLLIN, 0};
            if (poll(&wait, 1, 10) <= 0)
                continue;
            int const client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            int const server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            sockaddr_in const place = placeOf(port);
            EXPECT_EQ(0, connect(server, reinterpret_cast<sockaddr const*>(&place), sizeof place));
            connections_.emplace_back([this, client, server] { pass(client, server); });
        }
    }

    void pass(int client, int server)
    {
        int const ends[] = {client, server};
        for (bool isOpen = true; isOpen && !isOver_;) {
            pollfd waits[] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
            if (poll(waits, 2, 10) <= 0)
                continue;
            for (int from = 0; from < 2 && isOpen; ++from)
                if (waits[from].revents != 0)
                    isOpen = passOn(ends[from], ends[1 - from], from);
        }
        close(client);
        close(server);
    }

    // Returns false at the end of the connection.
    bool passOn(int from, int to, int direction)
    {
        char bytes[4096];
        ssize_t const length = recv(from, bytes, sizeof bytes, 0);
        if (length <= 0)
            return false;
        size_t const end = cutAt_[direction];
        size_t const left = end - std::min(end, passed_[direction].load());
        size_t const count = std::min(left, static_cast<size_t>(length));
        send(to, bytes, count, MSG_NOSIGNAL);
        passed_[direction] += count;
        if (count == static_cast<size_t>(length))
            return true;
        cutAt_[direction] = SIZE_MAX;  // of the first connection only
        return false;
    }

    std::atomic<size_t> cutAt_[2];
    std::atomic<size_t> passed_[2] = {0, 0};
    std::atomic<bool> isOver_{false};
    int const listener_;
    int port_ = 0;
    std::thread acceptor_;
    std::vector<std::thread> connections_;  // of the acceptor, and of the destructor after its end
};
