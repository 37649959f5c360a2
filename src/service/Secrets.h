#pragma once

#include <string>
#include <string_view>

namespace keyferry::service {

// Random credentials and their stored form. Randomness comes from OpenSSL's RAND_bytes; a failure of the
// generator throws std::runtime_error (nothing weaker is ever used instead).
namespace Secrets {

// A bearer token: 256 random bits, base64url without padding, after a short prefix naming its owner kind.
std::string newToken(std::string_view prefix);
// An identifier: 128 random bits as lowercase hex.
std::string newId();
// Nine decimal digits, uniformly drawn.
std::string newPairCode();
// What the database keeps of a token: the lowercase hex SHA-256 of its text.
std::string tokenHash(std::string_view token);

} // namespace Secrets
} // namespace keyferry::service
