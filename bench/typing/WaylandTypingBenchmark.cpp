// Types the same mixed text with wtype and with keyferry-type's virtual keyboard under a headless sway (as an
// unprivileged user when run as root), into a Qt widget on Wayland, a GTK text view on Wayland and a Qt widget
// on Xwayland, and prints for each: characters per second until the receiver had the last one, and whether it
// arrived exactly. Run by hand (with bench-typing); never part of the test run's verdict.
#include "HeadlessSway.h"
#include "MixedSampleText.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace keyferry {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

struct Receiver {
    std::string name;
    std::vector<std::string> command; // "OUTPUT" stands for the file it records into
    std::map<std::string, std::string> environment;
};

struct Typed {
    double seconds = 0;
    double firstSeconds = 0; // until the receiver had its first character
    bool exact = false;
    std::size_t receivedBytes = 0;
};

std::size_t codePointCount(const std::string& utf8) {
    std::size_t count = 0;
    for (const char byte : utf8) {
        count += (static_cast<unsigned char>(byte) & 0xC0) != 0x80 ? 1 : 0;
    }
    return count;
}

std::string readAll(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

class Bench {
public:
    Bench(const std::string& keyferryType, const std::string& qtReceiver, const std::string& gtkReceiver,
          const std::string& placeholderKeyboard)
        : typeTool(sway.install(keyferryType)), qt(sway.install(qtReceiver)), gtk(sway.install(gtkReceiver)),
          placeholder(sway.run({sway.install(placeholderKeyboard)})) {
        if (placeholder->readLine(10s) != std::optional<std::string>("ready")) {
            throw std::runtime_error("the placeholder keyboard did not start");
        }
    }

    std::vector<Receiver> receivers() {
        return {{"Qt on Wayland", {qt, "OUTPUT", "0"}, {{"QT_QPA_PLATFORM", "wayland"}}},
                {"GTK on Wayland", {"python3", gtk, "OUTPUT"}, {{"GDK_BACKEND", "wayland"}}},
                {"Qt on Xwayland", {qt, "OUTPUT", "0"}, {{"QT_QPA_PLATFORM", "xcb"}, {"DISPLAY", sway.xDisplay()}}}};
    }

    std::vector<std::string> keyferry() const { return {typeTool, "--backend=virtual-keyboard"}; }

    // Types `text` into a fresh receiver; timed from the typer's start to the receiver's last growth.
    Typed type(const Receiver& receiver, const std::vector<std::string>& typer, const std::string& text) {
        const auto output = sway.file("bench-" + std::to_string(++runs) + ".txt");
        std::vector<std::string> command = receiver.command;
        for (auto& argument : command) {
            argument = argument == "OUTPUT" ? output.string() : argument;
        }
        auto client = sway.run(command, receiver.environment);
        if (client->readLine(30s) != std::optional<std::string>("ready")) {
            throw std::runtime_error(receiver.name + " did not take the focus");
        }
        const std::string expected = withTypedLineEnds(text);
        const auto started = Clock::now();
        auto typing = sway.run(typer, {}, text);
        auto grew = started;
        std::optional<Clock::time_point> firstGrowth;
        std::uintmax_t size = 0;
        std::optional<int> status;
        while ((!status || size < expected.size()) && Clock::now() - grew < 5s && Clock::now() - started < 300s) {
            status = status ? status : typing->waitForExit(0ms);
            std::error_code missing;
            const auto now = std::filesystem::file_size(output, missing);
            if (!missing && now != size) {
                size = now;
                grew = Clock::now();
                firstGrowth = firstGrowth.value_or(grew);
            }
            std::this_thread::sleep_for(2ms);
        }
        std::this_thread::sleep_for(200ms);
        const std::string got = readAll(output);
        return {std::chrono::duration<double>(grew - started).count(),
                std::chrono::duration<double>(firstGrowth.value_or(grew) - started).count(), got == expected,
                got.size()};
    }

private:
    HeadlessSway sway;
    std::string typeTool;
    std::string qt;
    std::string gtk;
    std::unique_ptr<HelperProcess> placeholder;
    int runs = 0;
};

// The machine's load averages (1, 5 and 15 minutes): the receivers' speed depends on the CPU they get.
std::string loadAverage() {
    std::string one;
    std::string five;
    std::string fifteen;
    std::ifstream("/proc/loadavg") >> one >> five >> fifteen;
    return one + " " + five + " " + fifteen;
}

// Prints one line and returns the speed in characters per second.
double print(const std::string& name, const std::string& text, const Typed& typed, double reference) {
    const double speed = static_cast<double>(codePointCount(text)) / typed.seconds;
    std::printf("  %-34s %8.0f chars/s  (first character after %5.2f s, last after %6.2f s)  %s", name.c_str(), speed,
                typed.firstSeconds, typed.seconds, typed.exact ? "exact" : "NOT exact");
    if (reference > 0) {
        std::printf("  x%.1f wtype", speed / reference);
    }
    std::printf("\n");
    std::fflush(stdout);
    return speed;
}

} // namespace
} // namespace keyferry

int main(int argc, char** argv) {
    using namespace keyferry;
    if (argc != 5) {
        std::cerr
            << "usage: keyferry-wayland-typing-bench KEYFERRY_TYPE QT_RECEIVER GTK_RECEIVER PLACEHOLDER_KEYBOARD\n";
        return 2;
    }
    try {
        Bench bench(argv[1], argv[2], argv[3], argv[4]);
        constexpr std::size_t characters = 2000; // wtype takes some 10 s per receiver for this
        const std::string text = withTypedLineEnds(mixedSampleText(characters));
        std::printf("Typing %zu characters of mixed text under a headless sway, with wtype and with keyferry-type\n"
                    "(load average now: %s)\n",
                    characters, loadAverage().c_str());
        for (const Receiver& receiver : bench.receivers()) {
            std::printf("%s:\n", receiver.name.c_str());
            const double reference = print("wtype -", text, bench.type(receiver, {"wtype", "-"}, text), 0);
            print("keyferry-type (virtual keyboard)", text, bench.type(receiver, bench.keyferry(), text), reference);
        }
        const std::string longText = mixedSampleText(10000);
        std::printf("\nkeyferry-type alone, 10,000 characters:\n");
        for (const Receiver& receiver : bench.receivers()) {
            print(receiver.name, longText, bench.type(receiver, bench.keyferry(), longText), 0);
        }
    } catch (const std::exception& error) {
        std::cerr << "keyferry-wayland-typing-bench: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
