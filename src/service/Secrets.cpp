#include "Secrets.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <array>
#include <cstdint>
#include <stdexcept>

namespace keyferry::service::Secrets {
namespace {

template <std::size_t N> std::array<unsigned char, N> randomBytes() {
    std::array<unsigned char, N> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
        throw std::runtime_error("the random generator failed");
    }
    return bytes;
}

std::string hex(const unsigned char* data, std::size_t size) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        text.push_back(digits[data[i] >> 4]);
        text.push_back(digits[data[i] & 0x0f]);
    }
    return text;
}

std::string base64Url(const unsigned char* data, std::size_t size) {
    static constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string text;
    std::uint32_t bits = 0;
    int bitCount = 0;
    for (std::size_t i = 0; i < size; ++i) {
        bits = (bits << 8) | data[i];
        bitCount += 8;
        while (bitCount >= 6) {
            bitCount -= 6;
            text.push_back(alphabet[(bits >> bitCount) & 0x3f]);
        }
    }
    if (bitCount > 0) {
        text.push_back(alphabet[(bits << (6 - bitCount)) & 0x3f]);
    }
    return text;
}

} // namespace

std::string newToken(std::string_view prefix) {
    const auto bytes = randomBytes<32>();
    return std::string(prefix) + base64Url(bytes.data(), bytes.size());
}

std::string newId() {
    const auto bytes = randomBytes<16>();
    return hex(bytes.data(), bytes.size());
}

std::string newPairCode() {
    // Rejection sampling keeps every code equally likely: 4,000,000,000 is a multiple of 1,000,000,000.
    constexpr std::uint32_t limit = 4'000'000'000U;
    for (;;) {
        const auto bytes = randomBytes<4>();
        const std::uint32_t value = (std::uint32_t{bytes[0]} << 24) | (std::uint32_t{bytes[1]} << 16) |
                                    (std::uint32_t{bytes[2]} << 8) | std::uint32_t{bytes[3]};
        if (value < limit) {
            std::string code = std::to_string(value % 1'000'000'000U);
            return std::string(9 - code.size(), '0') + code;
        }
    }
}

std::string tokenHash(std::string_view token) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (EVP_Digest(token.data(), token.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1) {
        throw std::runtime_error("SHA-256 failed");
    }
    return hex(digest.data(), length);
}

} // namespace keyferry::service::Secrets
