#include "ServiceError.h"

#include <gtest/gtest.h>

namespace keyferry {
namespace {

constexpr const char* internetAdvice = " Check your internet connection and try again.";

TEST(ServiceErrorMessage, HttpStatusNamesTheStatusAfterTheFallback) {
    const RequestError error = ServiceError::httpStatus(404, "");
    EXPECT_EQ(message(error, "Could not remove this phone."), "Could not remove this phone. The server returned 404.");
}

TEST(ServiceErrorMessage, ServerErrorBodyNeverReachesTheUser) {
    const RequestError error = ServiceError::httpStatus(500, R"({"error":"database exploded"})");
    EXPECT_EQ(message(error, "Could not refresh paired phones."),
              "Could not refresh paired phones. The server returned 500.");
}

TEST(ServiceErrorMessage, InvalidResponseAdvisesCheckingTheConnection) {
    EXPECT_EQ(message(ServiceError::invalidResponse(), "Could not create a pairing code."),
              std::string("Could not create a pairing code.") + internetAdvice);
}

TEST(ServiceErrorMessage, TransportFailureAdvisesCheckingTheConnection) {
    EXPECT_EQ(message(TransportError{"timed out"}, "Could not remove this phone."),
              std::string("Could not remove this phone.") + internetAdvice);
}

TEST(ServiceErrorMessage, DecodingFailureOfASuccessfulReplyAdvisesCheckingTheConnection) {
    EXPECT_EQ(message(DecodingError{"missing pairCode"}, "Could not create a pairing code."),
              std::string("Could not create a pairing code.") + internetAdvice);
}

TEST(ServiceErrorMessage, StatusIsWrittenInDecimalWhateverItsSize) {
    EXPECT_EQ(message(ServiceError::httpStatus(199, ""), "F."), "F. The server returned 199.");
    EXPECT_EQ(message(ServiceError::httpStatus(-1, ""), "F."), "F. The server returned -1.");
}

TEST(ServiceErrorIsHttpStatus, TrueOnlyForTheServicesStatusWithThatCode) {
    EXPECT_TRUE(isHttpStatus(ServiceError::httpStatus(401, "denied"), 401));
    EXPECT_FALSE(isHttpStatus(ServiceError::httpStatus(403, ""), 401));
    EXPECT_FALSE(isHttpStatus(ServiceError::invalidResponse(), 401));
    EXPECT_FALSE(isHttpStatus(TransportError{"401"}, 401));
    EXPECT_FALSE(isHttpStatus(DecodingError{}, 0));
}

} // namespace
} // namespace keyferry
