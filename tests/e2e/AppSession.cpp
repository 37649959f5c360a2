#include "AppSession.h"

#include "ServiceClock.h"
#include "SqliteStorage.h"
#include "Wait.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace keyferry::service {
namespace {

using namespace std::chrono_literals;

// The first line a shell command prints, or the empty text.
std::string firstLineOf(const std::string& command) {
    std::array<char, 256> line{};
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) {
        return {};
    }
    const bool read = std::fgets(line.data(), line.size(), pipe) != nullptr;
    pclose(pipe);
    std::string text = read ? line.data() : "";
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    return text;
}

std::string visibleWindow(const std::string& title) {
    return firstLineOf("xdotool search --onlyvisible --name '^" + title + "$' 2>/dev/null");
}

void require(bool condition, const std::string& what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

} // namespace

AppSession::AppSession(const std::filesystem::path& folder) : folder_(folder) {
    keyring_ = std::make_unique<HelperProcess>(std::vector<std::string>{
        "sh", "-c", "printf keyferry-e2e | exec gnome-keyring-daemon --foreground --unlock --components=secrets"});
    require(testing::waitUntil(
                [] {
                    return std::system(
                               "dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus "
                               "org.freedesktop.DBus.NameHasOwner string:org.freedesktop.secrets 2>/dev/null | grep -q "
                               "true") == 0;
                },
                20s),
            "gnome-keyring did not start");

    service_ = std::make_unique<HelperProcess>(std::vector<std::string>{
        KEYFERRY_SERVICE_PROGRAM, "--listen", KEYFERRY_E2E_LISTEN, "--data", (folder_ / "service").string(), "--cert",
        KEYFERRY_E2E_CERTIFICATES "/server.pem", "--key", KEYFERRY_E2E_CERTIFICATES "/server-key.pem"});
    require(service_->readLine(20s).value_or("").find("listening") != std::string::npos, "the service did not start");

    receiver_ =
        std::make_unique<HelperProcess>(std::vector<std::string>{KEYFERRY_QT_RECEIVER, receivedFile().string(), "0"});
    app_ = std::make_unique<HelperProcess>(std::vector<std::string>{KEYFERRY_E2E_APP});
    require(testing::waitUntil([] { return !visibleWindow("Keyferry").empty(); }, 30s),
            "the application showed no window");
}

AppSession::~AppSession() {
    app_.reset();
    receiver_.reset();
    service_.reset();
    keyring_.reset();
}

std::string AppSession::requestPairingCode() {
    const std::string window = visibleWindow("Keyferry");
    // Return presses the window's default button, "Generate pairing code".
    require(std::system(("timeout 10 xdotool windowfocus --sync " + window + " key Return").c_str()) == 0,
            "could not press Return in the application's window");
    std::string code;
    require(testing::waitUntil(
                [&] {
                    SqliteStorage storage((folder_ / "service" / "keyferry.sqlite3").string());
                    const auto codes = storage.livePairCodes(SystemClock().nowMs());
                    code = codes.size() == 1 ? codes.front().code : std::string();
                    return !code.empty();
                },
                30s),
            "no pairing code was made");
    require(testing::waitUntil([] { return !visibleWindow("Pair a phone").empty(); }, 10s),
            "the code window did not open");
    return code;
}

void AppSession::focusReceiverAfterPairing() {
    require(testing::waitUntil([] { return visibleWindow("Pair a phone").empty(); }, 30s),
            "the code window stayed open");
    const std::string window = firstLineOf("xdotool search --pid " + std::to_string(receiver_->pid()) + " 2>/dev/null");
    require(!window.empty(), "the receiver has no window");
    require(std::system(("timeout 10 xdotool windowfocus --sync " + window).c_str()) == 0,
            "could not focus the receiver");
}

void AppSession::restartApplication(const std::vector<std::string>& arguments) {
    app_.reset();
    std::vector<std::string> command{KEYFERRY_E2E_APP};
    command.insert(command.end(), arguments.begin(), arguments.end());
    app_ = std::make_unique<HelperProcess>(command);
}

std::string AppSession::received() const {
    std::ifstream file(receivedFile(), std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void AppSession::screenshot(const std::string& name) {
    std::filesystem::create_directories(KEYFERRY_E2E_SCREENSHOTS);
    const std::string path = std::string(KEYFERRY_E2E_SCREENSHOTS) + "/" + name + ".png";
    std::system(("import -window root '" + path + "' 2>/dev/null").c_str());
}

} // namespace keyferry::service
