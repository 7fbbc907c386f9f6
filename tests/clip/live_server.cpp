#include "live_server.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <random>
#include <stdexcept>
#include <utility>

namespace vidorra::test {

LiveServer::LiveServer(Manner manner, std::string content) : mManner(manner), mContent(std::move(content)) {
    mListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    mStopEvent = eventfd(0, EFD_CLOEXEC);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (mListener < 0 || mStopEvent < 0 || bind(mListener, generic, length) != 0 ||
        listen(mListener, 16) != 0 || getsockname(mListener, generic, &length) != 0) {
        throw std::runtime_error("no loopback socket");
    }
    mUrl = "tcp://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    mThread = std::thread([this] { serve(); });
}

LiveServer::~LiveServer() {
    eventfd_write(mStopEvent, 1);
    mThread.join();
    close(mListener);
    close(mStopEvent);
}

// Whether one of the events came before the server is stopped and the time is over.
bool LiveServer::waitFor(int descriptor, short events, int milliseconds) {
    std::array<pollfd, 2> both{{{mStopEvent, POLLIN, 0}, {descriptor, events, 0}}};
    return poll(both.data(), both.size(), milliseconds) > 0 && both[0].revents == 0;
}

bool LiveServer::send(int client, const std::string& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        if (!waitFor(client, POLLOUT, -1)) {
            return false;
        }
        const ssize_t count =
            ::send(client, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

void LiveServer::serve() {
    while (waitFor(mListener, POLLIN, -1)) {
        const int client = accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client >= 0) {
            ++mClients;
            treat(client);
            close(client);
        }
    }
}

void LiveServer::treat(int client) {
    if (mManner == Manner::Trickle) {
        constexpr int kPause = 10;
        for (const char byte : mContent) {
            // The client says nothing; an event is its end.
            if (!send(client, std::string(1, byte)) || waitFor(client, POLLIN, kPause)) {
                return;
            }
        }
    } else if (mManner == Manner::Garbage) {
        std::minstd_rand random;
        std::string bytes(65536, ' ');
        do {
            for (char& byte : bytes) {
                byte = static_cast<char>(random());
            }
        } while (send(client, bytes));
        return;
    } else if (!send(client, mContent) || mManner == Manner::Cut) {
        return;
    }
    // Until it leaves.
    waitFor(client, POLLIN, -1);
}

}  // namespace vidorra::test
