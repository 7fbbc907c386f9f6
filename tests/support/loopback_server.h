#pragma once

#include <atomic>
#include <future>
#include <string>
#include <thread>

namespace vidorra::test {

/// A server on 127.0.0.1 that accepts one client, sends it some bytes and then nothing more, without closing
/// the connection. The destructor closes it.
class LoopbackServer {
public:
    explicit LoopbackServer(std::string content);
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;
    ~LoopbackServer();

    /// "tcp://127.0.0.1:" and the port.
    const std::string& url() const { return mUrl; }

    /// Whether a client came and the last byte is on its way.
    bool sentAll() const { return mSentAll; }

private:
    void serve();

    std::string mContent;
    std::string mUrl;
    int mListener = -1;
    std::atomic<bool> mSentAll{false};
    std::promise<void> mStop;
    std::thread mThread;
};

}  // namespace vidorra::test
