#pragma once

#include <future>
#include <string>
#include <thread>

namespace vidorra::test {

/// A server on 127.0.0.1 that takes one client, sends it some bytes and then says nothing more, without
/// closing the connection. The destructor closes it.
class LoopbackServer {
public:
    explicit LoopbackServer(std::string content);
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;
    ~LoopbackServer();

    /// "tcp://127.0.0.1:" and the port.
    const std::string& url() const { return mUrl; }

private:
    void serve();

    std::string mContent;
    std::string mUrl;
    int mListener = -1;
    std::promise<void> mStop;
    std::thread mThread;
};

}  // namespace vidorra::test
