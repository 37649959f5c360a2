// The keyferry-service program itself: its command line, its own certificates, and texts that survive a
// crash of the process.
#include "ServiceProcess.h"
#include "HttpsClient.h"
#include "TempFolder.h"
#include "WebSocketClient.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sys/wait.h>

namespace keyferry::service {
namespace {

using nlohmann::json;

const std::filesystem::path program = KEYFERRY_SERVICE_PROGRAM;

int exitCodeOf(const std::string& arguments) {
    const int status = std::system((program.string() + " " + arguments + " >/dev/null 2>&1").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(ServiceProcessTest, CommandLineIsChecked) {
    EXPECT_EQ(exitCodeOf("--help"), 0);
    EXPECT_EQ(exitCodeOf("--bogus 1"), 2);
    EXPECT_EQ(exitCodeOf("--listen nonsense"), 2);
    EXPECT_EQ(exitCodeOf("--cert only.pem"), 2);
    EXPECT_EQ(exitCodeOf("--public-url http://plain.example"), 2);
}

TEST(ServiceProcessTest, MakesItsOwnAuthorityWithTheConfiguredNames) {
    TempFolder folder;
    ServiceProcess service(program, folder.path(),
                           {"--public-url", "https://keyferry.example.net:8443", "--host-name", "192.168.1.20"});
    for (const char* file : {"ca.pem", "ca-key.pem", "server.pem", "server-key.pem"}) {
        EXPECT_TRUE(std::filesystem::exists(folder.path() / file)) << file;
    }
    const auto keyPermissions = std::filesystem::status(folder.path() / "server-key.pem").permissions();
    EXPECT_EQ(keyPermissions & (std::filesystem::perms::group_all | std::filesystem::perms::others_all),
              std::filesystem::perms::none);
    const std::string command = "openssl x509 -noout -ext subjectAltName -in " +
                                (folder.path() / "server.pem").string() + " > " +
                                (folder.path() / "names.txt").string();
    ASSERT_EQ(std::system(command.c_str()), 0);
    std::ifstream namesFile(folder.path() / "names.txt");
    const std::string names((std::istreambuf_iterator<char>(namesFile)), std::istreambuf_iterator<char>());
    for (const char* name : {"DNS:localhost", "IP Address:127.0.0.1", "IP Address:0:0:0:0:0:0:0:1",
                             "DNS:keyferry.example.net", "IP Address:192.168.1.20"}) {
        EXPECT_NE(names.find(name), std::string::npos) << name << " in " << names;
    }
    const std::string verify = "openssl verify -CAfile " + (folder.path() / "ca.pem").string() + " " +
                               (folder.path() / "server.pem").string() + " >/dev/null";
    EXPECT_EQ(std::system(verify.c_str()), 0);
}

TEST(ServiceProcessTest, InitPreparesTheCertificatesAndExits) {
    TempFolder folder;
    EXPECT_EQ(exitCodeOf("--init --data " + folder.path().string() + " --host-name 127.77.0.1"), 0);
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "ca.pem"));
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "server.pem"));
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "keyferry.sqlite3"));
}

TEST(ServiceProcessTest, TextsSurviveACrashOfTheService) {
    TempFolder folder;
    std::string computerToken;
    std::string textId;
    {
        ServiceProcess service(program, folder.path());
        HttpsClient client(service.port(), service.authority());
        const auto computer =
            client.post("/v1/computers/pair/start", "", json{{"name", "Desk"}, {"platform", "linux"}});
        ASSERT_EQ(computer.status, 200);
        computerToken = computer.json["computerToken"];
        const auto phone =
            client.post("/v1/phones/pair", "", json{{"code", computer.json["pairCode"]}, {"name", "Pixel"}});
        ASSERT_EQ(phone.status, 200);
        const auto sent = client.post("/v1/phones/texts", phone.json["phoneToken"], json{{"text", "survives ✓"}});
        ASSERT_EQ(sent.status, 200);
        textId = sent.json["id"];
        service.kill();
    }
    ServiceProcess restarted(program, folder.path());
    WebSocketClient socket(restarted.port(), restarted.authority());
    ASSERT_EQ(socket.connect(computerToken), 101);
    ASSERT_EQ(socket.read().value_or(json())["type"], "connected");
    const auto frame = socket.read();
    ASSERT_TRUE(frame);
    EXPECT_EQ((*frame)["id"], textId);
    EXPECT_EQ((*frame)["text"], "survives ✓");
}

TEST(ServiceProcessTest, ServesAGivenCertificateInsteadOfItsOwn) {
    TempFolder own;
    { ServiceProcess makeCertificates(program, own.path()); }
    TempFolder other;
    ServiceProcess service(
        program, other.path(),
        {"--cert", (own.path() / "server.pem").string(), "--key", (own.path() / "server-key.pem").string()});
    EXPECT_FALSE(std::filesystem::exists(other.path() / "ca.pem"));
    HttpsClient client(service.port(), own.path() / "ca.pem");
    EXPECT_EQ(client.get("/").status, 200);
}

} // namespace
} // namespace keyferry::service
