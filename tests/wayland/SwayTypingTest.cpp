// Typing with keyferry-type's virtual keyboard under a headless sway, as an unprivileged user, into three
// receivers that record what they get: a Qt widget on Wayland, a GTK text view on Wayland and a Qt widget on
// Xwayland. A placeholder keyboard is on the seat first, as a real desktop's keyboard would be. The text
// must arrive exactly, line ends as typed.
#include "HeadlessSway.h"
#include "MixedSampleText.h"
#include "ReceivedText.h"
#include "TextInjector.h"
#include "VirtualKeyboardPoster.h"
#include "VirtualKeyboardProbe.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>

namespace keyferry {
namespace {

using namespace std::chrono_literals;

// Every line-end form, a tab, a line separator, combining marks, a ZWJ family with skin tones and a flag,
// after a 10,000-character mixed text.
std::string sampleText() {
    return mixedSampleText(10000) +
           "\r\nend:\tline\rfeed\nsep\u2028e\u0301 \U0001F469\U0001F3FD\u200D\U0001F4BB \U0001F1EF\U0001F1F5\r\n";
}

// Waits until the file holds `bytes` or stops growing for three seconds, then reads it.
std::string recorded(const std::filesystem::path& path, std::size_t bytes) {
    return receivedText(path, bytes, 3s);
}

// The running process whose command line holds `needle`; 0 when there is none.
pid_t processWith(const std::string& needle) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) {
            continue;
        }
        std::string command = fileContents(entry.path() / "cmdline");
        std::replace(command.begin(), command.end(), '\0', ' ');
        if (command.find(needle) != std::string::npos) {
            return std::stoi(name);
        }
    }
    return 0;
}

class SwayTypingTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        sway = std::make_unique<HeadlessSway>();
        typeTool = sway->install(KEYFERRY_TYPE_TOOL);
        qtReceiver = sway->install(KEYFERRY_QT_RECEIVER);
        gtkReceiver = sway->install(KEYFERRY_GTK_RECEIVER);
        placeholder = sway->run({sway->install(KEYFERRY_PLACEHOLDER_KEYBOARD)});
        ASSERT_EQ(placeholder->readLine(10s), std::optional<std::string>("ready"));
    }

    static void TearDownTestSuite() {
        placeholder.reset();
        sway.reset();
    }

    void TearDown() override { receiver.reset(); }

    void startReceiver(const std::vector<std::string>& command, const std::map<std::string, std::string>& environment) {
        output = sway->file(::testing::UnitTest::GetInstance()->current_test_info()->name() + std::string(".txt"));
        std::vector<std::string> arguments = command;
        std::replace(arguments.begin(), arguments.end(), std::string("OUTPUT"), output.string());
        receiver = sway->run(arguments, environment);
        ASSERT_EQ(receiver->readLine(30s), std::optional<std::string>("ready")) << command[0] << " got no focus";
    }

    // Types the text with keyferry-type; the exit status.
    int type(const std::string& text, const std::string& backend = "virtual-keyboard") {
        auto tool = sway->run({typeTool, "--backend=" + backend}, {}, text);
        const auto status = tool->waitForExit(60s);
        return status.value_or(-1);
    }

    void expectExactlyTyped() {
        const std::string text = sampleText();
        ASSERT_EQ(type(text), 0);
        const std::string expected = withTypedLineEnds(text);
        const std::string got = recorded(output, expected.size());
        EXPECT_EQ(got.size(), expected.size());
        EXPECT_TRUE(got == expected)
            << "first difference at byte "
            << std::distance(got.begin(),
                             std::mismatch(got.begin(), got.end(), expected.begin(), expected.end()).first);
    }

    static inline std::unique_ptr<HeadlessSway> sway;
    static inline std::unique_ptr<HelperProcess> placeholder;
    static inline std::string typeTool;
    static inline std::string qtReceiver;
    static inline std::string gtkReceiver;
    // Starts the keymap watcher; what it reported before "ready".
    std::unique_ptr<HelperProcess> startKeymapWatcher() {
        auto watcher = sway->run({sway->install(KEYFERRY_KEYMAP_WATCHER)});
        for (auto line = watcher->readLine(10s); line && *line != "ready"; line = watcher->readLine(10s)) {
        }
        return watcher;
    }

    static std::vector<std::string> keymapsReported(HelperProcess& watcher, std::chrono::milliseconds quiet) {
        std::vector<std::string> keymaps;
        while (auto line = watcher.readLine(quiet)) {
            keymaps.push_back(*line);
        }
        return keymaps;
    }

    std::unique_ptr<HelperProcess> receiver;
    std::filesystem::path output;
};

TEST_F(SwayTypingTest, MixedTextArrivesExactlyInAQtWidgetOnWayland) {
    startReceiver({qtReceiver, "OUTPUT", "0"}, {{"QT_QPA_PLATFORM", "wayland"}});
    expectExactlyTyped();
}

TEST_F(SwayTypingTest, MixedTextArrivesExactlyInAGtkTextViewOnWayland) {
    startReceiver({"python3", gtkReceiver, "OUTPUT"}, {{"GDK_BACKEND", "wayland"}});
    expectExactlyTyped();
}

TEST_F(SwayTypingTest, MixedTextArrivesExactlyInAQtWidgetOnXwayland) {
    startReceiver({qtReceiver, "OUTPUT", "0"}, {{"QT_QPA_PLATFORM", "xcb"}, {"DISPLAY", sway->xDisplay()}});
    expectExactlyTyped();
}

// A window that reads nothing for a while (busy, or stopped here) gets the whole text once it reads again,
// rather than being dropped by the compositor for the keys queued meanwhile.
TEST_F(SwayTypingTest, AGtkTextViewThatStopsReadingForAWhileStillGetsTheWholeText) {
    startReceiver({"python3", gtkReceiver, "OUTPUT"}, {{"GDK_BACKEND", "wayland"}});
    const pid_t client = processWith(output.string());
    ASSERT_GT(client, 0);
    ASSERT_EQ(kill(client, SIGSTOP), 0);
    const std::string text = mixedSampleText(3000);
    auto tool = sway->run({typeTool, "--backend=virtual-keyboard"}, {}, text);
    std::this_thread::sleep_for(3s); // how long the window reads nothing
    kill(client, SIGCONT);
    EXPECT_EQ(tool->waitForExit(60s), std::optional<int>(0));
    const std::string expected = withTypedLineEnds(text);
    EXPECT_TRUE(recorded(output, expected.size()) == expected);
}

// Where the compositor's connections cannot be seen, keys go at the blind pace, without the brake.
TEST_F(SwayTypingTest, WithoutWatchingTheReceiverKeysStillArriveExactlyInAGtkTextView) {
    startReceiver({"python3", gtkReceiver, "OUTPUT"}, {{"GDK_BACKEND", "wayland"}});
    const std::string text = mixedSampleText(3000);
    setenv("WAYLAND_DISPLAY", sway->waylandSocket().c_str(), 1);
    VirtualKeyboardPoster::Timing timing;
    timing.watchBacklog = false;
    bool inserted = false;
    {
        VirtualKeyboardPoster poster(timing);
        VirtualKeyboardProbe probe;
        TextInjector injector(poster, probe);
        inserted = injector.insert(text);
    }
    unsetenv("WAYLAND_DISPLAY");
    EXPECT_TRUE(inserted);
    const std::string expected = withTypedLineEnds(text);
    EXPECT_TRUE(recorded(output, expected.size()) == expected);
}

TEST_F(SwayTypingTest, ATextWithACharacterNoKeyTypesIsRefusedWholeAndNothingArrives) {
    startReceiver({qtReceiver, "OUTPUT", "0"}, {{"QT_QPA_PLATFORM", "wayland"}});
    EXPECT_EQ(type("typed? \x07 no"), 1);
    EXPECT_EQ(type("yes"), 0);
    EXPECT_EQ(recorded(output, 3), "yes");
}

TEST_F(SwayTypingTest, TheChoiceForThisSessionIsTheVirtualKeyboardAndNeverXTest) {
    startReceiver({qtReceiver, "OUTPUT", "0"}, {{"QT_QPA_PLATFORM", "wayland"}});
    auto tool = sway->run({typeTool}, {{"DISPLAY", sway->xDisplay()}}, "picked");
    EXPECT_EQ(tool->waitForExit(60s), std::optional<int>(0));
    EXPECT_EQ(recorded(output, 6), "picked");
}

TEST_F(SwayTypingTest, TheUsersKeymapComesBackWhenTypingIsDone) {
    startReceiver({qtReceiver, "OUTPUT", "0"}, {{"QT_QPA_PLATFORM", "wayland"}});
    auto watcher = startKeymapWatcher();
    ASSERT_EQ(type("\u00e9\u0416\U0001F600"), 0);
    const auto keymaps = keymapsReported(*watcher, 2s);
    ASSERT_FALSE(keymaps.empty()) << "typing changed no keymap";
    EXPECT_NE(std::find(keymaps.begin(), keymaps.end(), "keyferry"), keymaps.end()) << "Keyferry's keymap never came";
    EXPECT_EQ(keymaps.back(), "user");
    EXPECT_EQ(recorded(output, 8), "\u00e9\u0416\U0001F600");
}

// As the application types: one keyboard that lives on, and gives the user's keymap back once typing pauses.
TEST_F(SwayTypingTest, AKeyboardThatLivesOnGivesTheUsersKeymapBackOnceTypingPauses) {
    startReceiver({qtReceiver, "OUTPUT", "0"}, {{"QT_QPA_PLATFORM", "wayland"}});
    auto watcher = startKeymapWatcher();
    setenv("WAYLAND_DISPLAY", sway->waylandSocket().c_str(), 1);
    VirtualKeyboardPoster::Timing timing;
    timing.restoreAfter = 300ms;
    VirtualKeyboardPoster poster(timing);
    VirtualKeyboardProbe probe;
    TextInjector injector(poster, probe);
    ASSERT_TRUE(injector.insert("\u00e9\u0416\U0001F600"));
    const auto keymaps = keymapsReported(*watcher, 1s);
    ASSERT_FALSE(keymaps.empty());
    EXPECT_EQ(keymaps.back(), "user");
    ASSERT_TRUE(injector.insert(" again"));
    EXPECT_EQ(recorded(output, 14), "\u00e9\u0416\U0001F600 again");
    unsetenv("WAYLAND_DISPLAY");
}

} // namespace
} // namespace keyferry
