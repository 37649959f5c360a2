// How long a text takes from the phone to the computer. Prints figures; never fails a test run.
//   keyferry-bench-latency [COUNT]         the service alone: the real keyferry-service, the phone's
//                                          HTTPS requests and a computer's WebSocket played from here
//   keyferry-bench-latency --app [COUNT]   the whole way: service, the keyferry application typing into a
//                                          receiving window on a private desktop (run through the
//                                          bench-latency target, which provides the desktop)
#include "HttpsClient.h"
#include "ServiceProcess.h"
#include "TempFolder.h"
#include "WebSocketClient.h"
#ifdef KEYFERRY_BENCH_WITH_APP
#include "AppSession.h"
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

using namespace keyferry::service;
using nlohmann::json;
using Clock = std::chrono::steady_clock;

namespace {

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void report(const char* what, std::vector<double> samples) {
    if (samples.empty()) {
        std::printf("%-52s no samples\n", what);
        return;
    }
    std::sort(samples.begin(), samples.end());
    const auto at = [&](double fraction) { return samples[static_cast<std::size_t>(fraction * double(samples.size() - 1))]; };
    std::printf("%-52s n=%-4zu p50 %7.2f ms  p95 %7.2f ms  max %7.2f ms\n", what, samples.size(), at(0.5), at(0.95),
                samples.back());
}

// Polls the phone's view of one text until it reads "typed"; false after 10 s.
bool waitUntilTyped(const HttpsClient& client, const std::string& phoneToken, const std::string& id) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (Clock::now() < deadline) {
        const auto answer = client.get("/v1/phones/texts", phoneToken);
        for (const json& text : answer.json["texts"]) {
            if (text["id"] == id && text["state"] == "typed") {
                return true;
            }
        }
    }
    return false;
}

int serviceAlone(int count) {
    TempFolder folder;
    ServiceProcess service(KEYFERRY_SERVICE_PROGRAM, folder.path());
    HttpsClient client(service.port(), service.authority());
    const auto computer = client.post("/v1/computers/pair/start", "", json{{"name", "bench"}, {"platform", "linux"}});
    const auto phone = client.post("/v1/phones/pair", "", json{{"code", computer.json["pairCode"]}, {"name", "bench"}});
    const std::string phoneToken = phone.json["phoneToken"];
    WebSocketClient socket(service.port(), service.authority());
    if (socket.connect(computer.json["computerToken"]) != 101 || !socket.read()) {
        std::fprintf(stderr, "the computer could not connect\n");
        return 1;
    }
    std::vector<double> delivered;
    std::vector<double> typedSeen;
    for (int i = 0; i < count; ++i) {
        const auto start = Clock::now();
        const auto sent = client.post("/v1/phones/texts", phoneToken, json{{"text", "latency " + std::to_string(i)}});
        const auto frame = socket.read(std::chrono::seconds(5));
        if (!frame || (*frame)["id"] != sent.json["id"]) {
            std::fprintf(stderr, "text %d was not delivered\n", i);
            return 1;
        }
        delivered.push_back(millisecondsSince(start));
        socket.ack((*frame)["id"]);
        if (waitUntilTyped(client, phoneToken, sent.json["id"])) {
            typedSeen.push_back(millisecondsSince(start));
        }
    }
    std::printf("service alone (keyferry-service process, TLS on 127.0.0.1, new connection per phone request):\n");
    report("phone POST start -> computer has the frame", delivered);
    report("phone POST start -> phone reads \"typed\" (after ack)", typedSeen);
    return 0;
}

#ifdef KEYFERRY_BENCH_WITH_APP
int wholeWay(int count) {
    TempFolder folder;
    AppSession session(folder.path());
    const std::string code = session.requestPairingCode();
    HttpsClient client(KEYFERRY_E2E_PORT, KEYFERRY_E2E_CERTIFICATES "/ca.pem", KEYFERRY_E2E_HOST);
    const auto phone = client.post("/v1/phones/pair", "", json{{"code", code}, {"name", "bench"}});
    const std::string phoneToken = phone.json.value("phoneToken", "");
    session.focusReceiverAfterPairing();
    std::this_thread::sleep_for(std::chrono::seconds(3)); // the application connects after its next status poll
    std::vector<double> arrived;
    std::vector<double> typedSeen;
    std::string expected;
    for (int i = 0; i < count; ++i) {
        const std::string text = "latency " + std::to_string(i) + " ";
        expected += text;
        const auto start = Clock::now();
        const auto sent = client.post("/v1/phones/texts", phoneToken, json{{"text", text}});
        const auto deadline = Clock::now() + std::chrono::seconds(20);
        while (session.received() != expected && Clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the measurement's resolution
        }
        if (session.received() != expected) {
            std::fprintf(stderr, "text %d did not arrive; the receiver has [%s]\n", i, session.received().c_str());
            return 1;
        }
        arrived.push_back(millisecondsSince(start));
        if (waitUntilTyped(client, phoneToken, sent.json["id"])) {
            typedSeen.push_back(millisecondsSince(start));
        }
    }
    std::printf("whole way (service, keyferry application typing with XTest into a Qt window on Xvfb):\n");
    report("phone POST start -> text complete in the receiver", arrived);
    report("phone POST start -> phone reads \"typed\"", typedSeen);
    return 0;
}
#endif

} // namespace

int main(int argc, char** argv) {
    const bool withApp = argc > 1 && std::string(argv[1]) == "--app";
    const int count = argc > (withApp ? 2 : 1) ? std::stoi(argv[withApp ? 2 : 1]) : (withApp ? 30 : 200);
    if (!withApp) {
        return serviceAlone(count);
    }
#ifdef KEYFERRY_BENCH_WITH_APP
    return wholeWay(count);
#else
    std::fprintf(stderr, "this build has no e2e application\n");
    return 2;
#endif
}
