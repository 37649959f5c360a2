// Types the same 10,000-character mixed text into one X client on a private Xvfb with keyferry-type and with
// xdotool (its default delay, and --delay 0), then keyferry-type alone into windows that have just opened on
// X servers that have just started: mixed text, text of many scripts, and Chinese with about 800 distinct
// ideographs, into fast windows (Xlib, Qt, GTK, xterm) and into ones that take 5 ms per key (among them windows that
// never answer pings: one reading like XPending loops, one asking the server something on each key). Prints for
// each: characters per second to the moment the text is complete in the window (and to the moment the typer
// exits), the processor time the typer used, wrong or missing characters, the keymap changes the X server
// announced (each makes every Qt window reload its keymap), and the speed relative to xdotool. Run by hand;
// never part of the test run's verdict.
#include "HelperProcess.h"
#include "KeymapChangeCounter.h"
#include "MixedSampleText.h"
#include "ReceivedText.h"
#include "TempFolder.h"
#include "XvfbDisplay.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace keyferry {
namespace {

using namespace std::chrono_literals;

// The processor time of every child reaped so far: the typer is the only one reaped while it runs.
double reapedChildrenCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto seconds = [](const timeval& time) { return static_cast<double>(time.tv_sec) + time.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}
using Clock = std::chrono::steady_clock;

std::u32string codePoints(const std::string& utf8) {
    std::u32string result;
    for (std::size_t index = 0; index < utf8.size();) {
        const auto lead = static_cast<unsigned char>(utf8[index]);
        const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        char32_t value = length == 1 ? lead : lead & (0x3F >> (length - 1));
        for (std::size_t next = 1; next < length && index + next < utf8.size(); ++next) {
            value = (value << 6) | (static_cast<unsigned char>(utf8[index + next]) & 0x3F);
        }
        result.push_back(value);
        index += length;
    }
    return result;
}

// The length of the longest common subsequence, by Myers' difference algorithm (fast when the texts are close).
std::size_t commonLength(const std::u32string& left, const std::u32string& right) {
    const auto n = static_cast<long>(left.size());
    const auto m = static_cast<long>(right.size());
    const long limit = n + m;
    std::vector<long> furthest(static_cast<std::size_t>(2 * limit + 2), 0);
    for (long edits = 0; edits <= limit; ++edits) {
        for (long diagonal = -edits; diagonal <= edits; diagonal += 2) {
            const auto at = [&](long k) -> long& { return furthest[static_cast<std::size_t>(k + limit + 1)]; };
            long x = (diagonal == -edits || (diagonal != edits && at(diagonal - 1) < at(diagonal + 1)))
                         ? at(diagonal + 1)
                         : at(diagonal - 1) + 1;
            long y = x - diagonal;
            while (x < n && y < m && left[static_cast<std::size_t>(x)] == right[static_cast<std::size_t>(y)]) {
                ++x;
                ++y;
            }
            at(diagonal) = x;
            if (x >= n && y >= m) {
                return static_cast<std::size_t>((n + m - edits) / 2);
            }
        }
    }
    return 0;
}

struct Outcome {
    double typerSeconds = 0;
    double endToEndSeconds = 0;
    std::size_t wrongOrMissing = 0;
    std::size_t extra = 0;
    std::size_t keymapChanges = 0; // each one makes every Qt window reload its whole keymap
    double typerCpuSeconds = 0;    // user and system time of the typer, waiting for slow windows included
};

// A receiving window: its program and the arguments after the output file (milliseconds per key, ...).
struct Window {
    std::string program;
    std::vector<std::string> arguments;
};

Outcome run(const std::vector<std::string>& typer, const std::string& text, const Window& window) {
    const TempFolder folder("keyferry-bench");
    const auto output = folder / "received.txt";
    std::vector<std::string> arguments{window.program, output.string()};
    arguments.insert(arguments.end(), window.arguments.begin(), window.arguments.end());
    HelperProcess receiver(arguments, {{"LC_ALL", "C.UTF-8"}, {"QT_QPA_PLATFORM", "xcb"}});
    if (receiver.readLine(20s) != std::optional<std::string>("ready")) {
        throw std::runtime_error("the receiver did not take the focus");
    }
    const std::string expected = withTypedLineEnds(text);
    KeymapChangeCounter keymapChanges;
    const double cpuBefore = reapedChildrenCpuSeconds();
    const auto started = Clock::now();
    HelperProcess typing(typer, {}, text);
    std::optional<int> status;
    auto typed = started;
    std::size_t lastSize = 0;
    auto lastGrowth = started;
    // Watches the receiver while the typer runs: done once the typer has exited and the text is complete, or
    // nothing more arrived for a few seconds.
    while (!status || Clock::now() - lastGrowth < 3s) {
        if (!status) {
            status = typing.waitForExit(0ms);
            typed = Clock::now();
        }
        const std::size_t size = std::filesystem::exists(output) ? std::filesystem::file_size(output) : 0;
        if (size != lastSize) {
            lastSize = size;
            lastGrowth = Clock::now();
        }
        if (status && size >= expected.size() && Clock::now() - lastGrowth > 300ms) {
            break;
        }
        if (Clock::now() - started > 600s) {
            break;
        }
        std::this_thread::sleep_for(2ms);
    }
    const std::u32string sent = codePoints(expected);
    const std::u32string got = codePoints(fileContents(output));
    if (status != std::optional<int>(0)) {
        std::cerr << typer.front() << " exited with " << status.value_or(-1) << "\n";
    }
    const std::size_t common = commonLength(sent, got);
    return Outcome{std::chrono::duration<double>(typed - started).count(),
                   std::chrono::duration<double>(lastGrowth - started).count(),
                   sent.size() - common,
                   got.size() - common,
                   keymapChanges.count(),
                   reapedChildrenCpuSeconds() - cpuBefore};
}

void print(const std::string& name, std::size_t characters, const Outcome& outcome, double reference) {
    // Speed is measured to the moment the receiving client had the last character; the typer's own speed beside.
    const double speed = static_cast<double>(characters) / outcome.endToEndSeconds;
    std::printf("%-46s %7.0f chars/s to complete (%6.2f s; typer done after %6.2f s: %7.0f chars/s)  "
                "typer CPU %5.2f s  wrong or missing: %5zu  extra: %5zu  keymap changes: %4zu  x%.1f xdotool\n",
                name.c_str(), speed, outcome.endToEndSeconds, outcome.typerSeconds,
                static_cast<double>(characters) / outcome.typerSeconds, outcome.typerCpuSeconds, outcome.wrongOrMissing,
                outcome.extra, outcome.keymapChanges, reference > 0 ? speed / reference : 0.0);
    std::fflush(stdout);
}

// The text typed into a window that opens, on an X server that starts, just for this case.
Outcome runOnFreshServer(const std::vector<std::string>& typer, const std::string& text, const Window& window) {
    XvfbDisplay display;
    setenv("DISPLAY", display.name().c_str(), 1);
    return run(typer, text, window);
}

std::size_t codePointCount(const std::string& utf8) {
    return codePoints(utf8).size();
}

} // namespace
} // namespace keyferry

int main(int argc, char** argv) {
    using namespace keyferry;
    if (argc != 4 && argc != 5) {
        std::cerr << "usage: keyferry-typing-bench KEYFERRY_TYPE XLIB_RECEIVER QT_RECEIVER [CASES_CONTAINING]\n";
        return 2;
    }
    // With a filter, only the cases on new servers whose name contains it (and no comparison with xdotool).
    const std::string only = argc == 5 ? argv[4] : "";
    const std::vector<std::string> keyferryType{argv[1]};
    const Window xlib{argv[2], {"0"}};
    constexpr std::size_t characters = 10000;
    double reference = 0;
    if (only.empty()) {
        XvfbDisplay display;
        setenv("DISPLAY", display.name().c_str(), 1);
        const std::string text = mixedSampleText(characters);
        std::printf("Typing %zu characters (%zu UTF-8 bytes) of mixed text into an Xlib client on Xvfb %s\n",
                    characters, text.size(), display.name().c_str());
        const Outcome xdotoolDefault = run({"xdotool", "type", "--file", "-"}, text, xlib);
        reference = static_cast<double>(characters) / xdotoolDefault.endToEndSeconds;
        print("xdotool type", characters, xdotoolDefault, reference);
        print("xdotool type --delay 0", characters, run({"xdotool", "type", "--delay", "0", "--file", "-"}, text, xlib),
              reference);
        print("keyferry-type", characters, run(keyferryType, text, xlib), reference);
    }
    std::printf("\nkeyferry-type alone, each text on an X server that has just started, into a window that has just "
                "opened (it reads its keymap on the first key):\n");
    // Xlib windows that answer the window manager's pings as toolkit applications do, and ones that never do.
    const Window fresh{argv[2], {"0", "fresh"}};
    const Window answering{argv[2], {"0", "fresh", "ping"}};
    const Window slowAnswering{argv[2], {"5", "fresh", "ping"}};
    const Window slowFresh{argv[2], {"5", "fresh"}};
    const Window slowPending{argv[2], {"5", "fresh", "pending"}};
    const Window slowRoundTrip{argv[2], {"5", "fresh", "roundtrip"}};
    const Window qt{argv[3], {"0"}};
    const Window slowQt{argv[3], {"5"}};
    const Window xterm{KEYFERRY_XTERM_RECEIVER, {}};
    const Window gtk{KEYFERRY_GTK_RECEIVER, {}};
    const std::string mixed = mixedSampleText(characters);
    const std::string manyScripts = manyScriptSampleText(characters);
    const std::string chinese = chineseSampleText(3000, 800);
    const std::string shortManyScripts = manyScriptSampleText(3000);
    struct Case {
        const char* name;
        const std::string& text;
        const Window& window;
    };
    const std::vector<Case> cases = {
        {"mixed text, Xlib window", mixed, fresh},
        {"many scripts, Xlib window", manyScripts, fresh},
        {"many scripts, Xlib window answering pings", manyScripts, answering},
        {"many scripts, Qt window", manyScripts, qt},
        {"many scripts, xterm", manyScripts, xterm},
        {"many scripts, GTK", manyScripts, gtk},
        {"many scripts, 5 ms/key Xlib window", shortManyScripts, slowFresh},
        {"Chinese (800 distinct), Xlib window", chinese, fresh},
        {"Chinese (800 distinct), Xlib answering pings", chinese, answering},
        {"Chinese (800 distinct), Qt window", chinese, qt},
        {"Chinese (800 distinct), xterm", chinese, xterm},
        {"Chinese (800 distinct), GTK", chinese, gtk},
        {"Chinese (800 distinct), 5 ms/key Xlib pinged", chinese, slowAnswering},
        {"Chinese (800 distinct), 5 ms/key Qt", chinese, slowQt},
        {"Chinese (800 distinct), 5 ms/key Xlib window", chinese, slowFresh},
        {"Chinese (800 distinct), 5 ms/key Xlib window reading with XPending", chinese, slowPending},
        {"Chinese (800 distinct), 5 ms/key Xlib window asking the server on each key", chinese, slowRoundTrip},
    };
    for (const Case& each : cases) {
        if (std::string(each.name).find(only) == std::string::npos) {
            continue;
        }
        print(each.name, codePointCount(each.text), runOnFreshServer(keyferryType, each.text, each.window), reference);
    }
    return 0;
}
