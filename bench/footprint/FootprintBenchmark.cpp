// The application's footprint when it is paired, connected and idle, beside the least a Qt Widgets tray
// program with the same network stack holds (keyferry-bench-bare-tray), both on the same private desktop
// and connected to the same keyferry-service. Prints figures; never fails a test run.
//   keyferry-bench-footprint [IDLE_SECONDS] [--mappings]
// Run through the bench-footprint target, which provides the desktop. IDLE_SECONDS (default 60) is the
// window over which CPU time is measured; --mappings also lists where each one's memory lies.
#include "AppSession.h"
#include "HelperProcess.h"
#include "HttpsClient.h"
#include "ProcessFootprint.h"
#include "TempFolder.h"
#include "Wait.h"

#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>

namespace keyferry::bench {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using service::AppSession;
using service::HttpsClient;

constexpr auto settleTime = 15s;

HttpsClient serviceClient() {
    return HttpsClient(KEYFERRY_E2E_PORT, KEYFERRY_E2E_CERTIFICATES "/ca.pem", KEYFERRY_E2E_HOST);
}

// Pairs the application through its window as a person does, then starts it again as at login: tray only.
void pairAndRestartInBackground(AppSession& session) {
    const std::string code = session.requestPairingCode();
    const auto phone = serviceClient().post("/v1/phones/pair", "", json{{"code", code}, {"name", "bench"}});
    if (phone.status != 200) {
        throw std::runtime_error("the phone could not pair with the application");
    }
    session.focusReceiverAfterPairing();
    session.restartApplication({"--background"});
}

// A computer token of its own for the bare program, paired with a phone like the application's.
std::string pairedComputerToken() {
    const auto client = serviceClient();
    const auto computer = client.post("/v1/computers/pair/start", "", json{{"name", "bare"}, {"platform", "linux"}});
    client.post("/v1/phones/pair", "", json{{"code", computer.json.value("pairCode", "")}, {"name", "bare"}});
    return computer.json.value("computerToken", "");
}

void requireConnected(pid_t pid, const char* who) {
    const bool connected = testing::waitUntil([pid] { return connectedTo(pid, KEYFERRY_E2E_PORT); }, 30s);
    if (!connected) {
        throw std::runtime_error(std::string(who) + " did not connect to the service");
    }
}

struct Figures {
    Memory memory;
    double cpuSeconds = 0;
    int threads = 0;
    bool stillConnected = false;
};

void printRow(const char* who, const Figures& figures, int idleSeconds) {
    std::printf("%-22s RSS %6.1f MB  PSS %6.1f MB  CPU %6.3f s over %d s idle  threads %2d  %s\n", who,
                figures.memory.rssKb / 1024.0, figures.memory.pssKb / 1024.0, figures.cpuSeconds, idleSeconds,
                figures.threads, figures.stillConnected ? "connected" : "NOT connected");
}

void printMappings(const char* who, pid_t pid) {
    std::printf("\n%s: PSS by mapping (kB), largest first\n", who);
    int shown = 0;
    for (const auto& [path, kb] : pssByMapping(pid)) {
        if (shown++ == 25) {
            break;
        }
        std::printf("  %8ld  %s\n", kb, path.c_str());
    }
}

int run(int idleSeconds, bool withMappings) {
    TempFolder folder;
    AppSession session(folder.path());
    pairAndRestartInBackground(session);
    HelperProcess bare(std::vector<std::string>{KEYFERRY_BARE_TRAY_PROGRAM, KEYFERRY_E2E_URL "/",
                                                KEYFERRY_E2E_CERTIFICATES "/ca.pem", pairedComputerToken()});
    const pid_t app = session.applicationPid();
    requireConnected(app, "the application");
    if (bare.readLine(30s) != "connected") {
        throw std::runtime_error("the bare tray program's WebSocket did not open");
    }
    std::this_thread::sleep_for(settleTime);

    const double appStart = cpuSecondsOf(app), bareStart = cpuSecondsOf(bare.pid());
    std::this_thread::sleep_for(std::chrono::seconds(idleSeconds));
    const Figures keyferry{memoryOf(app), cpuSecondsOf(app) - appStart, threadsOf(app),
                           connectedTo(app, KEYFERRY_E2E_PORT)};
    const Figures yardstick{memoryOf(bare.pid()), cpuSecondsOf(bare.pid()) - bareStart, threadsOf(bare.pid()),
                            connectedTo(bare.pid(), KEYFERRY_E2E_PORT)};

    std::printf("Idle footprint, connected to keyferry-service on %s, after %lld s settling (Xvfb + trayer):\n",
                KEYFERRY_E2E_HOST, static_cast<long long>(settleTime.count()));
    printRow("keyferry --background", keyferry, idleSeconds);
    printRow("bare Qt tray program", yardstick, idleSeconds);
    std::printf("difference             RSS %+6.1f MB  PSS %+6.1f MB  CPU %+6.3f s\n",
                (keyferry.memory.rssKb - yardstick.memory.rssKb) / 1024.0,
                (keyferry.memory.pssKb - yardstick.memory.pssKb) / 1024.0, keyferry.cpuSeconds - yardstick.cpuSeconds);
    while (const auto line = bare.readLine(100ms)) {
        std::printf("the bare tray program said: %s\n", line->c_str());
    }
    if (withMappings) {
        printMappings("keyferry", app);
        printMappings("bare", bare.pid());
    }
    return 0;
}

} // namespace
} // namespace keyferry::bench

int main(int argc, char** argv) {
    int idleSeconds = 60;
    bool withMappings = false;
    for (int index = 1; index < argc; ++index) {
        const std::string argument = argv[index];
        if (argument == "--mappings") {
            withMappings = true;
        } else {
            idleSeconds = std::stoi(argument);
        }
    }
    try {
        return keyferry::bench::run(idleSeconds, withMappings);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "the benchmark could not run: %s\n", failure.what());
        return 1;
    }
}
