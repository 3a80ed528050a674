// CuttingProxy: passes the bytes of connections on, and cuts the first connection after some
// bytes in one direction.
#pragma once

#include <poll.h>
#include <stdint.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "LoopbackSocket.h"

class CuttingProxy {
public:
    enum Direction { toServer, toClient };

    CuttingProxy(Direction direction, size_t bytes) : cutAt_{SIZE_MAX, SIZE_MAX}
    {
        cutAt_[direction] = bytes;
        listener_.listen();
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
    }

    std::string address() const { return listener_.address(); }

    /// Starts to pass connections on to "127.0.0.1:PORT".
    void serve(std::string const& server)
    {
        acceptor_ = std::thread([this, server] { accept(server); });
    }

    /// Returns the bytes so far, of all connections.
    size_t passed(Direction direction) const { return passed_[direction]; }

private:
    void accept(std::string const& address)
    {
        while (!isOver_) {
            int const client = listener_.accept();
            if (client < 0)
                continue;
            int const server = LoopbackSocket::connectTo(address);
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
    LoopbackSocket const listener_;
    std::thread acceptor_;
    std::vector<std::thread> connections_;  // of the acceptor, and of the destructor after its end
};
