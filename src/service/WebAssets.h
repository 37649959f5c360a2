#pragma once

#include <string_view>
#include <vector>

namespace keyferry::service {

// One file of the phone page, compiled into the program.
struct WebAsset {
    std::string_view path; // "/index.html"
    std::string_view contentType;
    std::string_view content;
};

// The phone page's files (web/), embedded at build time. Static data; safe from any thread.
class WebAssets {
public:
    static const std::vector<WebAsset>& all();
    // The file served for a request path; "/" is "/index.html". Nothing when there is no such file.
    static const WebAsset* find(std::string_view path);
};

} // namespace keyferry::service
