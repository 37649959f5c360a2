// The service's own certificate authority can vouch only for the service: its name constraints, what
// happens when the service's names change, and the data folder that holds its signing key.
#include "HttpsClient.h"
#include "ServiceProcess.h"
#include "TempFolder.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>

namespace keyferry::service {
namespace {

const std::filesystem::path program = KEYFERRY_SERVICE_PROGRAM;

struct CommandResult {
    int exitCode = -1;
    std::string output; // standard output and standard error together
};

CommandResult run(const std::string& command) {
    CommandResult result;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (!pipe) {
        return result;
    }
    std::array<char, 4096> chunk{};
    while (const std::size_t size = std::fread(chunk.data(), 1, chunk.size(), pipe)) {
        result.output.append(chunk.data(), size);
    }
    const int status = pclose(pipe);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream stream(path);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

CommandResult init(const std::filesystem::path& folder, const std::string& hostNames) {
    return run(program.string() + " --init --data " + folder.string() + " " + hostNames);
}

// Makes a leaf certificate for `name`, signed with the folder's authority key, and says whether OpenSSL
// accepts it against the authority.
bool leafVerifies(const std::filesystem::path& folder, const std::string& name) {
    const std::string leaf = (folder / ("leaf-" + name)).string();
    const std::string names = name.find_first_not_of("0123456789.") == std::string::npos ? "IP:" + name : "DNS:" + name;
    const auto request =
        run("openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout " + leaf +
            "-key.pem -subj /CN=" + name + " -addext subjectAltName=" + names + " -out " + leaf + ".csr");
    EXPECT_EQ(request.exitCode, 0) << request.output;
    const auto sign =
        run("openssl x509 -req -in " + leaf + ".csr -CA " + (folder / "ca.pem").string() + " -CAkey " +
            (folder / "ca-key.pem").string() + " -set_serial 7 -days 30 -copy_extensions copy -out " + leaf + ".pem");
    EXPECT_EQ(sign.exitCode, 0) << sign.output;
    return run("openssl verify -CAfile " + (folder / "ca.pem").string() + " " + leaf + ".pem").exitCode == 0;
}

TEST(CertificateAuthorityTest, TheAuthorityIsLimitedToTheServiceNamesByACriticalExtension) {
    TempFolder folder;
    ASSERT_EQ(init(folder.path(), "--host-name keyferry.example.net --host-name 192.168.1.20").exitCode, 0);
    const auto text = run("openssl x509 -noout -text -in " + (folder.path() / "ca.pem").string());
    ASSERT_EQ(text.exitCode, 0);
    EXPECT_NE(text.output.find("X509v3 Name Constraints: critical"), std::string::npos) << text.output;
    for (const char* permitted : {"DNS:localhost", "DNS:keyferry.example.net", "IP:127.0.0.1/255.255.255.255",
                                  "IP:192.168.1.20/255.255.255.255"}) {
        EXPECT_NE(text.output.find(permitted), std::string::npos) << permitted << " in " << text.output;
    }
}

TEST(CertificateAuthorityTest, ALeafForAnotherNameSignedWithTheAuthorityKeyFailsVerification) {
    TempFolder folder;
    ASSERT_EQ(init(folder.path(), "--host-name keyferry.example.net").exitCode, 0);
    EXPECT_EQ(run("openssl verify -CAfile " + (folder.path() / "ca.pem").string() + " " +
                  (folder.path() / "server.pem").string())
                  .exitCode,
              0);
    EXPECT_TRUE(leafVerifies(folder.path(), "keyferry.example.net"));
    EXPECT_FALSE(leafVerifies(folder.path(), "bank.example.com"));
    EXPECT_FALSE(leafVerifies(folder.path(), "203.0.113.9"));
}

TEST(CertificateAuthorityTest, NewNamesIssueANewAuthorityAndTellTheOperator) {
    TempFolder folder;
    ASSERT_EQ(init(folder.path(), "--host-name one.example.net").exitCode, 0);
    const std::string first = readFile(folder.path() / "ca.pem");
    const auto same = init(folder.path(), "--host-name one.example.net");
    EXPECT_EQ(readFile(folder.path() / "ca.pem"), first);
    EXPECT_EQ(same.output.find("install"), std::string::npos) << same.output;

    const auto changed = init(folder.path(), "--host-name two.example.net");
    ASSERT_EQ(changed.exitCode, 0);
    EXPECT_NE(readFile(folder.path() / "ca.pem"), first);
    EXPECT_NE(changed.output.find("phones must install"), std::string::npos) << changed.output;
    EXPECT_TRUE(leafVerifies(folder.path(), "two.example.net"));
    EXPECT_FALSE(leafVerifies(folder.path(), "one.example.net"));
}

TEST(CertificateAuthorityTest, AnAuthorityWithoutNameConstraintsIsReplaced) {
    TempFolder folder;
    ASSERT_EQ(init(folder.path(), "").exitCode, 0);
    ASSERT_EQ(run("cd " + folder.path().string() +
                  " && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout ca-key.pem"
                  " -out ca.pem -days 30 -subj /CN=old -addext basicConstraints=critical,CA:TRUE")
                  .exitCode,
              0);
    const auto replaced = init(folder.path(), "");
    EXPECT_NE(replaced.output.find("phones must install"), std::string::npos) << replaced.output;
    EXPECT_NE(
        run("openssl x509 -noout -text -in " + (folder.path() / "ca.pem").string()).output.find("Name Constraints"),
        std::string::npos);
}

std::filesystem::perms modeOf(const std::filesystem::path& path) {
    return std::filesystem::status(path).permissions() & std::filesystem::perms::all;
}

TEST(CertificateAuthorityTest, TheDataFolderAndTheDatabaseAreTheOwnersOnly) {
    using std::filesystem::perms;
    const mode_t previous = umask(022);
    TempFolder parent;
    const auto folder = parent.path() / "data";
    ASSERT_EQ(init(folder, "").exitCode, 0);
    EXPECT_EQ(modeOf(folder), perms::owner_all);
    {
        ServiceProcess service(program, folder);
        const HttpsClient client(service.port(), service.authority());
        EXPECT_EQ(
            client.post("/v1/computers/pair/start", "", nlohmann::json{{"name", "Desk"}, {"platform", "linux"}}).status,
            200);
        for (const char* file : {"keyferry.sqlite3", "keyferry.sqlite3-wal", "keyferry.sqlite3-shm"}) {
            ASSERT_TRUE(std::filesystem::exists(folder / file)) << file;
            EXPECT_EQ(modeOf(folder / file), perms::owner_read | perms::owner_write) << file;
        }
        for (const char* file : {"ca-key.pem", "server-key.pem"}) {
            EXPECT_EQ(modeOf(folder / file), perms::owner_read | perms::owner_write) << file;
        }
    }
    umask(previous);
}

} // namespace
} // namespace keyferry::service
