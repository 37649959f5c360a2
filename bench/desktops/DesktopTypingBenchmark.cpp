// Types with keyferry-type's GNOME route under a headless mutter and its KDE route under a headless KWin into
// a GTK text view on Wayland, and prints for each desktop and kind of text (characters of the US layout,
// characters only the Unicode entry types): characters per second from the start of keyferry-type until the
// receiver had the last one, and whether the text arrived exactly. Run by hand (with bench-desktop-typing);
// never part of the test run's verdict.
#include "HeadlessCompositor.h"
#include "ReceivedText.h"

#include <chrono>
#include <cstdio>
#include <iostream>
#include <string>

namespace keyferry {
namespace {

using namespace std::chrono_literals;

struct Sample {
    const char* name;
    std::string text;
    std::size_t characters;
};

Sample layoutSample() {
    std::string text;
    while (text.size() < 2000) {
        text += "The Quick brown fox, 42 jumps: over (the) lazy dog?! ~@#$%\n";
    }
    return {"US layout characters", text, text.size()};
}

Sample entrySample() {
    std::string text;
    const char* const characters[] = {"\u4e2d", "\u00e9", "\u0416", "\U0001F600"};
    for (int index = 0; index < 200; ++index) {
        text += characters[index % 4];
    }
    return {"Unicode entry characters", text, 200};
}

void typeInto(HeadlessCompositor& desktop, const std::string& tool, const std::string& backend,
              const std::string& gtkReceiver, const Sample& sample, int run) {
    const auto output = desktop.file("received-" + std::to_string(run) + ".txt");
    auto receiver = desktop.run({"python3", gtkReceiver, output.string()}, {{"GDK_BACKEND", "wayland"}});
    if (receiver->readLine(30s) != std::optional<std::string>("ready")) {
        std::cout << backend << ": the receiver got no focus\n";
        return;
    }
    const auto start = std::chrono::system_clock::now();
    auto typing = desktop.run({tool, "--backend=" + backend}, {}, sample.text);
    const auto status = typing->waitForExit(300s);
    const std::string got = receivedText(output, sample.text.size(), std::chrono::seconds(3));
    // receivedText waits a little after the last byte; what counts is when the last byte arrived.
    const auto arrived = std::filesystem::last_write_time(output);
    const double seconds = std::chrono::duration<double>(std::chrono::file_clock::to_sys(arrived) - start).count();
    std::printf("%-6s %-26s %5zu chars  %7.1f chars/s  %s (exit %d, %zu of %zu bytes)\n", backend.c_str(), sample.name,
                sample.characters, static_cast<double>(sample.characters) / seconds,
                got == sample.text ? "exact" : "NOT exact", status.value_or(-1), got.size(), sample.text.size());
}

} // namespace
} // namespace keyferry

int main(int argc, char** argv) {
    using namespace keyferry;
    if (argc != 5) {
        std::cerr << "usage: keyferry-desktop-typing-bench KEYFERRY_TYPE GTK_RECEIVER PLACEHOLDER DESKTOP_ENTRY\n";
        return 2;
    }
    const std::string tool = argv[1];
    const std::string gtk = argv[2];
    int run = 0;
    {
        HeadlessCompositor mutter(HeadlessCompositor::Kind::mutter);
        auto placeholder = mutter.run({"python3", argv[3]});
        if (placeholder->readLine(30s) != std::optional<std::string>("ready")) {
            std::cout << "gnome: the placeholder keyboard did not start\n";
        }
        for (const Sample& sample : {layoutSample(), entrySample()}) {
            typeInto(mutter, tool, "gnome", gtk, sample, ++run);
        }
    }
    HeadlessCompositor kwin(HeadlessCompositor::Kind::kwin, {tool}, argv[4]);
    for (const Sample& sample : {layoutSample(), entrySample()}) {
        typeInto(kwin, kwin.file("keyferry-type").string(), "kde", gtk, sample, ++run);
    }
    return 0;
}
