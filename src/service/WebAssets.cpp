#include "WebAssets.h"

namespace keyferry::service {

const WebAsset* WebAssets::find(std::string_view path) {
    const std::string_view wanted = path == "/" ? std::string_view("/index.html") : path;
    for (const WebAsset& asset : all()) {
        if (asset.path == wanted) {
            return &asset;
        }
    }
    return nullptr;
}

} // namespace keyferry::service
