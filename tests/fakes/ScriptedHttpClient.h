#pragma once

#include "HttpClient.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keyferry::fakes {

// An HTTP client whose exchanges the test answers by hand. Every request is recorded with its completion,
// in the order sent (index 0 is the first ever sent); the test completes a pending one with respond(),
// failTransport() or failNotHttp(), which call the completion synchronously on the test's thread.
// Answering a request twice, or one that does not exist, throws std::logic_error (a mistake in the test).
// Single-threaded.
class ScriptedHttpClient : public HttpClient {
public:
    void send(HttpRequest request, std::function<void(HttpOutcome)> completion) override;

    // Every request ever sent, in order.
    std::vector<HttpRequest> requests() const;
    std::size_t requestCount() const { return exchanges.size(); }
    const HttpRequest& request(std::size_t index) const;

    // Indices of the requests not answered yet, oldest first.
    std::vector<std::size_t> pending() const;
    std::size_t pendingCount() const { return pending().size(); }
    bool isPending(std::size_t index) const;

    // `path` is matched against the URL's path, without its query: equal to it, or ending with "/" + path
    // ("v1/computers/phones" matches ".../v1/computers/phones" but not ".../v1/computers/phones/remove").
    static bool urlHasPath(std::string_view url, std::string_view path);
    std::vector<std::size_t> indicesForPath(std::string_view path) const; // all, oldest first
    std::optional<std::size_t> oldestPendingFor(std::string_view path) const;
    std::size_t countForPath(std::string_view path) const { return indicesForPath(path).size(); }

    void respond(std::size_t index, int status, std::string body, HttpHeaders headers = {});
    void failTransport(std::size_t index, std::string description = "The network connection was lost.");
    void failNotHttp(std::size_t index);

    // The same for the oldest pending request (throws when none is pending).
    void respondOldest(int status, std::string body, HttpHeaders headers = {});
    void failTransportOldest(std::string description = "The network connection was lost.");
    void failNotHttpOldest();

    // The same for the oldest pending request with that path (throws when none is pending).
    void respondTo(std::string_view path, int status, std::string body, HttpHeaders headers = {});
    void failTransportTo(std::string_view path, std::string description = "The network connection was lost.");

private:
    struct Exchange {
        HttpRequest request;
        std::function<void(HttpOutcome)> completion;
        bool answered = false;
    };

    void complete(std::size_t index, HttpOutcome outcome);
    std::size_t oldestPending() const;
    std::size_t requirePendingFor(std::string_view path) const;

    std::vector<Exchange> exchanges;
};

} // namespace keyferry::fakes
