#include "ScriptedHttpClient.h"

#include <stdexcept>
#include <utility>

namespace keyferry::fakes {

namespace {

std::string_view pathOf(std::string_view url) {
    const auto scheme = url.find("://");
    if (scheme != std::string_view::npos) {
        url.remove_prefix(scheme + 3);
        const auto slash = url.find('/');
        url = slash == std::string_view::npos ? std::string_view{} : url.substr(slash);
    }
    const auto query = url.find_first_of("?#");
    return query == std::string_view::npos ? url : url.substr(0, query);
}

} // namespace

void ScriptedHttpClient::send(HttpRequest request, std::function<void(HttpOutcome)> completion) {
    exchanges.push_back(Exchange{std::move(request), std::move(completion), false});
}

std::vector<HttpRequest> ScriptedHttpClient::requests() const {
    std::vector<HttpRequest> all;
    all.reserve(exchanges.size());
    for (const auto& exchange : exchanges) {
        all.push_back(exchange.request);
    }
    return all;
}

const HttpRequest& ScriptedHttpClient::request(std::size_t index) const {
    if (index >= exchanges.size()) {
        throw std::logic_error("no such request");
    }
    return exchanges[index].request;
}

std::vector<std::size_t> ScriptedHttpClient::pending() const {
    std::vector<std::size_t> indices;
    for (std::size_t index = 0; index < exchanges.size(); ++index) {
        if (!exchanges[index].answered) {
            indices.push_back(index);
        }
    }
    return indices;
}

bool ScriptedHttpClient::isPending(std::size_t index) const {
    return index < exchanges.size() && !exchanges[index].answered;
}

bool ScriptedHttpClient::urlHasPath(std::string_view url, std::string_view path) {
    if (path.starts_with('/')) {
        path.remove_prefix(1);
    }
    const std::string_view urlPath = pathOf(url);
    if (urlPath == path) {
        return true;
    }
    return urlPath.size() > path.size() && urlPath.ends_with(path) && urlPath[urlPath.size() - path.size() - 1] == '/';
}

std::vector<std::size_t> ScriptedHttpClient::indicesForPath(std::string_view path) const {
    std::vector<std::size_t> indices;
    for (std::size_t index = 0; index < exchanges.size(); ++index) {
        if (urlHasPath(exchanges[index].request.url, path)) {
            indices.push_back(index);
        }
    }
    return indices;
}

std::optional<std::size_t> ScriptedHttpClient::oldestPendingFor(std::string_view path) const {
    for (const std::size_t index : indicesForPath(path)) {
        if (!exchanges[index].answered) {
            return index;
        }
    }
    return std::nullopt;
}

void ScriptedHttpClient::complete(std::size_t index, HttpOutcome outcome) {
    if (!isPending(index)) {
        throw std::logic_error("request " + std::to_string(index) + " is not pending");
    }
    exchanges[index].answered = true;
    // The completion may send new requests, which may reallocate the vector: take it out first.
    auto completion = std::move(exchanges[index].completion);
    exchanges[index].completion = nullptr;
    if (completion) {
        completion(std::move(outcome));
    }
}

std::size_t ScriptedHttpClient::oldestPending() const {
    const auto indices = pending();
    if (indices.empty()) {
        throw std::logic_error("no request is pending");
    }
    return indices.front();
}

std::size_t ScriptedHttpClient::requirePendingFor(std::string_view path) const {
    const auto index = oldestPendingFor(path);
    if (!index) {
        throw std::logic_error("no request is pending for " + std::string(path));
    }
    return *index;
}

void ScriptedHttpClient::respond(std::size_t index, int status, std::string body, HttpHeaders headers) {
    complete(index, HttpResponse{status, std::move(headers), std::move(body)});
}

void ScriptedHttpClient::failTransport(std::size_t index, std::string description) {
    complete(index, TransportError{std::move(description)});
}

void ScriptedHttpClient::failNotHttp(std::size_t index) {
    complete(index, NotHttpResponse{});
}

void ScriptedHttpClient::respondOldest(int status, std::string body, HttpHeaders headers) {
    respond(oldestPending(), status, std::move(body), std::move(headers));
}

void ScriptedHttpClient::failTransportOldest(std::string description) {
    failTransport(oldestPending(), std::move(description));
}

void ScriptedHttpClient::failNotHttpOldest() {
    failNotHttp(oldestPending());
}

void ScriptedHttpClient::respondTo(std::string_view path, int status, std::string body, HttpHeaders headers) {
    respond(requirePendingFor(path), status, std::move(body), std::move(headers));
}

void ScriptedHttpClient::failTransportTo(std::string_view path, std::string description) {
    failTransport(requirePendingFor(path), std::move(description));
}

} // namespace keyferry::fakes
