#include "ShellHarness.h"

#include <QCoreApplication>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>

namespace keyferry::uitest {

ShellHarness::ShellHarness() {
    setenv("HOME", home.path().c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home / "config").c_str(), 1);
    const CompanionServicePorts ports{queue,    mainThread, clock,    http,         webSockets,
                                      defaults, secrets,    keyboard, accessibility};
    service = CompanionService::make(ports, "https://keyferry.test", "test-computer");
}

ShellHarness::~ShellHarness() {
    delegate.reset();
    QCoreApplication::processEvents();
}

void ShellHarness::markPaired() {
    defaults.setString("quillix.computerId", "computer-1");
    defaults.setBoolean("quillix.paired", true);
    secrets.plant({"com.quillix.companion", "computer-token"}, "token-1");
}

AppDelegate& ShellHarness::launch(const QStringList& arguments, bool trayAvailable) {
    QStringList processArguments{QStringLiteral("keyferry")};
    processArguments += arguments;
    delegate = std::make_unique<AppDelegate>(service, accessibility, shellQueue, processArguments, trayAvailable);
    delegate->applicationDidFinishLaunching();
    return *delegate;
}

void ShellHarness::settle() {
    while (queue.runUntilIdle() + mainThread.drain() + shellQueue.runUntilIdle() > 0) {
    }
    QCoreApplication::processEvents();
}

void ShellHarness::advance(double seconds, double step) {
    double left = seconds;
    while (left > 1e-9) {
        const double now = std::min(step, left);
        time.advance(now);
        settle();
        left -= now;
    }
}

std::string ShellHarness::phonesJson(const std::vector<PairedPhone>& phones) {
    nlohmann::json list = nlohmann::json::array();
    for (const PairedPhone& phone : phones) {
        list.push_back({{"id", phone.id},
                        {"name", phone.name},
                        {"platform", phone.platform},
                        {"appVersion", phone.appVersion},
                        {"createdAt", phone.createdAt},
                        {"lastSeenAt", phone.lastSeenAt}});
    }
    return nlohmann::json{{"phones", list}}.dump();
}

PairedPhone ShellHarness::phone(const std::string& id, const std::string& name) {
    return PairedPhone{id, name, "ios", "1.0", 1'700'000'000'000, 1'700'000'100'000};
}

void ShellHarness::answerPhones(const std::vector<PairedPhone>& phones) {
    http.respondTo("v1/computers/phones", 200, phonesJson(phones));
    settle();
}

void ShellHarness::confirmConnection() {
    webSockets.lastTask().deliverText(R"({"type":"connected"})");
    settle();
}

void ShellHarness::sendText(const std::string& id, const std::string& text) {
    webSockets.lastTask().deliverText(nlohmann::json{{"type", "insert_text"}, {"id", id}, {"text", text}}.dump());
    settle();
}

QWidget& ShellHarness::mainWindow() {
    return *delegate->pairingWindow.window();
}

QWidget& ShellHarness::codeWindow() {
    return *delegate->pairCodeWindow.window();
}

std::filesystem::path ShellHarness::autostartEntry() const {
    return home / "config" / "autostart" / "com.quillix.companion.desktop";
}

} // namespace keyferry::uitest
