#pragma once

#include "Support/UniqueDescriptor.hpp"

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace corvane::TestSupport {

/// What the authority does with one request.
enum class TimestampBehaviour {
    good,
    /// HTTP status 503.
    unavailable,
    /// HTTP status 301 to another address.
    redirect,
    /// A reply whose status is "rejection".
    rejected,
    /// A reply whose status is "granted" and that has no token.
    withoutToken,
    /// HTTP status 200 and a web page.
    webPage,
    /// A token for another nonce, and one for other bytes.
    wrongNonce,
    wrongImprint,
    /// A token whose signature value is damaged.
    damaged,
    /// A correct token of the stranger's authority.
    stranger,
    /// The connection stays open and nothing comes.
    silent,
    /// A reply of 2 MiB.
    oversized,
    /// Connections are refused. For a server that does nothing else.
    refusing,
};

/// A time-stamp authority (RFC 3161 over HTTP) on the loopback interface, with a port of its own choice; it signs as
/// the authority of `TestHierarchy::shared()`. Runs a thread until it is destroyed.
class TimestampServer {
  public:
    /// @param behaviours one for each request in order; the last one holds for all that follow
    explicit TimestampServer(std::vector<TimestampBehaviour> behaviours = {TimestampBehaviour::good});
    TimestampServer(const TimestampServer&) = delete;
    TimestampServer& operator=(const TimestampServer&) = delete;
    ~TimestampServer();

    /// "http://127.0.0.1:PORT/ts"
    const std::string& url() const { return url_; }
    /// How many requests have been read so far.
    int requestCount() const { return requestCount_; }

  private:
    void serve(int wakeUp);
    void answer(UniqueDescriptor connection);

    std::vector<TimestampBehaviour> behaviours_;
    UniqueDescriptor listener_;
    UniqueDescriptor wakeUp_;
    std::string url_;
    std::atomic<int> requestCount_ = 0;
    /// Connections that wait for ever.
    std::vector<UniqueDescriptor> silent_;
    std::thread thread_;
};

} // namespace corvane::TestSupport
