#pragma once

#include <boost/beast/http/fields.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <optional>
#include <string>

namespace keyferry::service {

// One HTTPS exchange with the service on a loopback address (127.0.0.1 unless told), verifying its
// certificate against the given authority (host name "localhost"). Each request uses a new connection;
// failures to connect throw.
class HttpsClient {
public:
    struct Answer {
        int status = 0;
        std::string body;
        nlohmann::json json; // the body parsed, or null when it is not JSON
        boost::beast::http::fields headers;
    };

    HttpsClient(unsigned short port, std::filesystem::path authority, std::string address = "127.0.0.1");

    Answer get(const std::string& target, const std::string& token = {}) const;
    Answer post(const std::string& target, const std::string& token = {}, const std::string& body = {}) const;
    Answer post(const std::string& target, const std::string& token, const nlohmann::json& body) const {
        return post(target, token, body.dump());
    }
    // Any request: method name, target, bearer token (none when empty), body (none when empty), and
    // extra header lines.
    Answer exchange(const std::string& method, const std::string& target, const std::string& token,
                    const std::string& body) const;
    // Sends a request as it is (headers included) and reads the answer.
    Answer send(const boost::beast::http::request<boost::beast::http::string_body>& request) const;
    // The request exchange() sends: HTTP/1.1 to host "localhost", JSON body when there is one.
    static boost::beast::http::request<boost::beast::http::string_body>
    requestOf(const std::string& method, const std::string& target, const std::string& token, const std::string& body);
    // An answer from a response's status, body and header fields, its body parsed when it is JSON.
    static Answer answerOf(int status, std::string body, boost::beast::http::fields headers);

private:
    unsigned short port_;
    std::filesystem::path authority_;
    std::string address_;
};

} // namespace keyferry::service
