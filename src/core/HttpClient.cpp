#include "HttpClient.h"

#include <algorithm>
#include <cctype>

namespace keyferry {

namespace {

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    });
}

} // namespace

std::optional<std::string> headerValue(const HttpHeaders& headers, std::string_view name) {
    for (const auto& [key, value] : headers) {
        if (equalsIgnoringAsciiCase(key, name)) {
            return value;
        }
    }
    return std::nullopt;
}

} // namespace keyferry
