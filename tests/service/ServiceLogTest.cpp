// The service's log on standard error: one line per notable event, with a time and a level, repeated
// refusals once a minute, and never a credential, a pairing code or a text.
#include "HttpsClient.h"
#include "ServiceProcess.h"
#include "TempFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <fstream>
#include <regex>
#include <unistd.h>

namespace keyferry::service {
namespace {

using nlohmann::json;

const std::filesystem::path program = KEYFERRY_SERVICE_PROGRAM;

// Runs the service with its standard error going to `logFile` (the child inherits this process's
// descriptor 2, which is put back at once).
std::unique_ptr<ServiceProcess> serviceLoggingTo(const std::filesystem::path& dataFolder,
                                                 const std::filesystem::path& logFile) {
    const int log = ::open(logFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const int savedError = ::dup(STDERR_FILENO);
    ::dup2(log, STDERR_FILENO);
    auto service = std::make_unique<ServiceProcess>(program, dataFolder);
    ::dup2(savedError, STDERR_FILENO);
    ::close(savedError);
    ::close(log);
    return service;
}

std::vector<std::string> linesOf(const std::filesystem::path& file) {
    std::ifstream stream(file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::size_t countContaining(const std::vector<std::string>& lines, const std::string& part) {
    return static_cast<std::size_t>(std::count_if(
        lines.begin(), lines.end(), [&](const std::string& line) { return line.find(part) != std::string::npos; }));
}

TEST(ServiceLogTest, NotableEventsAreLoggedOnceWithALevelAndNoSecrets) {
    TempFolder folder;
    const auto logFile = folder.path() / "service.log";
    std::string computerToken;
    std::string phoneToken;
    std::string code;
    {
        const auto service = serviceLoggingTo(folder.path() / "data", logFile);
        const HttpsClient client(service->port(), service->authority());
        const auto computer =
            client.post("/v1/computers/pair/start", "", json{{"name", "Desk"}, {"platform", "linux"}});
        computerToken = computer.json.value("computerToken", "");
        code = computer.json.value("pairCode", "");
        const auto phone = client.post("/v1/phones/pair", "", json{{"code", code}, {"name", "Pixel"}});
        phoneToken = phone.json.value("phoneToken", "");
        ASSERT_EQ(client.post("/v1/phones/texts", phoneToken, json{{"text", "a private text"}}).status, 200);
        for (int i = 0; i < 13; ++i) {
            client.post("/v1/phones/pair", "", json{{"code", "000 000 001"}, {"name", "Guesser"}});
        }
    }
    std::string codeDigits = code;
    std::erase(codeDigits, ' ');
    const auto lines = linesOf(logFile);
    const std::regex shape(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z (info|warning|error) \S.*)");
    for (const std::string& line : lines) {
        EXPECT_TRUE(std::regex_match(line, shape)) << line;
        for (const std::string& secret : {computerToken, phoneToken, code, codeDigits, std::string("a private text")}) {
            EXPECT_EQ(line.find(secret), std::string::npos) << line;
        }
    }
    EXPECT_EQ(countContaining(lines, " info keyferry-service starting"), 1u);
    EXPECT_EQ(countContaining(lines, " info listening on 127.0.0.1:"), 1u);
    EXPECT_EQ(countContaining(lines, " warning refused 127.0.0.1: too many wrong pairing codes"), 1u)
        << "three refusals in a row make one line";
    EXPECT_EQ(countContaining(lines, " info keyferry-service stopped"), 1u);
}

} // namespace
} // namespace keyferry::service
