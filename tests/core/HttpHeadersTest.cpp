#include "HttpClient.h"

#include <gtest/gtest.h>

namespace keyferry {
namespace {

TEST(HttpHeaders, FindsTheFirstValueWhateverTheCase) {
    const HttpHeaders headers{{"content-type", "application/json"}, {"Content-Type", "text/plain"}};
    EXPECT_EQ(headerValue(headers, "Content-Type"), "application/json");
}

TEST(HttpHeaders, AbsentHeaderIsNothing) {
    EXPECT_EQ(headerValue({{"Authorization", "Bearer x"}}, "Content-Type"), std::nullopt);
}

} // namespace
} // namespace keyferry
