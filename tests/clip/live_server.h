#pragma once

#include <atomic>
#include <string>
#include <thread>

namespace vidorra::test {

/// A server on 127.0.0.1 that takes clients one after the other, and treats them badly.
class LiveServer {
public:
    enum class Manner {
        /// Sends its content, then nothing, until the client leaves.
        Stall,
        /// Sends its content byte by byte, with pauses of 10 ms.
        Trickle,
        /// Sends its content and closes the connection.
        Cut,
        /// Sends bytes that mean nothing, for ever.
        Garbage,
    };

    LiveServer(Manner manner, std::string content);
    LiveServer(const LiveServer&) = delete;
    LiveServer& operator=(const LiveServer&) = delete;
    ~LiveServer();

    /// "tcp://127.0.0.1:" and the port.
    const std::string& url() const { return mUrl; }

    /// How many clients have come.
    int clients() const { return mClients; }

private:
    void serve();
    void treat(int client);
    bool send(int client, const std::string& bytes);
    bool waitFor(int descriptor, short events, int milliseconds);

    const Manner mManner;
    const std::string mContent;
    std::string mUrl;
    int mListener = -1;
    int mStopEvent = -1;
    std::atomic<int> mClients{0};
    std::thread mThread;
};

}  // namespace vidorra::test
