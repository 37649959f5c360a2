#pragma once

#include <string_view>

namespace keyferry::ApiPaths {

// Where each call of the service's API lives, as absolute paths of the service's address. The application
// calls the computer's ones; the phone page calls the phone's ones; the service answers all of them.

inline constexpr std::string_view versionPrefix = "/v1/";

// The computer's side. Every one but pairStart takes the computer's credential ("Authorization: Bearer ...").
inline constexpr std::string_view pairStart = "/v1/computers/pair/start";
inline constexpr std::string_view pairCode = "/v1/computers/pair/code";
inline constexpr std::string_view pairStatus = "/v1/computers/pair/status";
inline constexpr std::string_view computerPhones = "/v1/computers/phones";
inline constexpr std::string_view removePhone = "/v1/computers/phones/remove";
// The WebSocket that brings texts to type (an upgrade of a GET).
inline constexpr std::string_view connect = "/v1/computers/connect";

// The phone's side. Every one but phonePair takes the phone's credential.
inline constexpr std::string_view phonePair = "/v1/phones/pair";
inline constexpr std::string_view phoneInfo = "/v1/phones/me";
inline constexpr std::string_view phoneTexts = "/v1/phones/texts";
inline constexpr std::string_view phoneUnpair = "/v1/phones/unpair";
inline constexpr std::string_view phoneRemoveComputer = "/v1/phones/computer/remove";

// The scheme of the credential header's value, with its separating space.
inline constexpr std::string_view bearerScheme = "Bearer ";

} // namespace keyferry::ApiPaths
