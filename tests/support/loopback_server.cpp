#include "support/loopback_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

namespace vidorra::test {

LoopbackServer::LoopbackServer(std::string content) : mContent(std::move(content)) {
    mListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (mListener < 0 || bind(mListener, generic, length) != 0 || listen(mListener, 1) != 0 ||
        getsockname(mListener, generic, &length) != 0) {
        throw std::runtime_error("no loopback socket");
    }
    mUrl = "tcp://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    mThread = std::thread([this] { serve(); });
}

LoopbackServer::~LoopbackServer() {
    mStop.set_value();
    // Ends an accept() that no client has met.
    shutdown(mListener, SHUT_RDWR);
    mThread.join();
    close(mListener);
}

void LoopbackServer::serve() {
    const int client = accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) {
        return;
    }
    for (std::size_t sent = 0; sent < mContent.size();) {
        const ssize_t count = send(client, mContent.data() + sent, mContent.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            break;
        }
        sent += static_cast<std::size_t>(count);
    }
    mSentAll = true;
    mStop.get_future().wait();
    close(client);
}

}  // namespace vidorra::test
