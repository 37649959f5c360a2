// Typing with keyferry-type's GNOME route under a headless mutter whose keymap holds two layouts (us, ru),
// into a GTK text view on Wayland. GNOME Shell is not there to apply the input sources, so the test does what
// it would: it keeps the sources in the private session's settings (dconf under the session's own config
// folder) and switches mutter to the layout of the first recently used source. Text of the layout in effect
// goes as its keys, and text of the other layout as that layout's keys with Mode_switch held.
#include "GtkReceiverTest.h"
#include "HeadlessCompositor.h"
#include "ReceivedText.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>

namespace keyferry {
namespace {

using namespace std::chrono_literals;

constexpr const char* nextLayoutKeysym = "fe08"; // ISO_Next_Group, on Caps Lock in this session
const std::string russianText = "Съешь же ещё этих мягких французских булок, да выпей чаю. 1234567890\n"
                                "Широкая электрификация южных губерний даст мощный толчок подъёму.\n";

class GnomeLayoutTypingTest : public GtkReceiverTest {
protected:
    static void SetUpTestSuite() {
        mutter = std::make_unique<HeadlessCompositor>(
            HeadlessCompositor::Kind::mutter, std::vector<std::filesystem::path>{}, std::filesystem::path{}, "us,ru");
        placeholder = mutter->run({"python3", KEYFERRY_GNOME_PLACEHOLDER_KEYBOARD});
        ASSERT_EQ(placeholder->readLine(30s), std::optional<std::string>("ready")) << mutter->log();
        setSources("sources", "[('xkb', 'us'), ('xkb', 'ru')]");
    }

    static void TearDownTestSuite() {
        placeholder.reset();
        mutter.reset();
    }

    void SetUp() override { startReceiver(*mutter); }

    static void setSources(const std::string& key, const std::string& value) {
        auto tool = mutter->run({"gsettings", "set", "org.gnome.desktop.input-sources", key, value});
        ASSERT_EQ(tool->waitForExit(30s), std::optional<int>(0));
    }

    // Puts the layout `index` (0: us, 1: ru) in effect, as GNOME Shell would on a switch: in the keymap's
    // locked group and first in the recently used sources.
    static void useLayout(int index) {
        setSources("mru-sources", index == 1 ? "[('xkb', 'ru'), ('xkb', 'us')]" : "[('xkb', 'us'), ('xkb', 'ru')]");
        if (layoutInEffect != index) {
            auto tap = mutter->run({"python3", KEYFERRY_GNOME_TAP_KEYSYM, nextLayoutKeysym});
            ASSERT_EQ(tap->waitForExit(30s), std::optional<int>(0));
            layoutInEffect = index;
        }
    }

    // Types the text with keyferry-type's GNOME route; how long the tool took, none when it failed.
    std::optional<std::chrono::steady_clock::duration> timedType(const std::string& text) {
        const auto started = std::chrono::steady_clock::now();
        auto tool = mutter->run({KEYFERRY_TYPE_TOOL, "--backend=gnome"}, {}, text);
        if (tool->waitForExit(60s) != std::optional<int>(0)) {
            return std::nullopt;
        }
        return std::chrono::steady_clock::now() - started;
    }

    static inline std::unique_ptr<HeadlessCompositor> mutter;
    static inline std::unique_ptr<HelperProcess> placeholder;
    static inline int layoutInEffect = 0;
};

TEST_F(GnomeLayoutTypingTest, TextOfTheSecondLayoutInEffectArrivesExactly) {
    useLayout(1);
    ASSERT_TRUE(timedType(russianText));
    EXPECT_EQ(receivedText(output, russianText.size(), 3s), russianText);
}

// Where GNOME's settings do not tell the layout in effect (sources kept per window), only keys that type the same
// in both layouts are used, and US and Russian share no letter: the text is refused rather than typed as other
// letters, and the same text arrives once the layout is known again.
TEST_F(GnomeLayoutTypingTest, WithTheLayoutInEffectUnknownATextOfLettersIsRefusedRatherThanTypedAsOtherLetters) {
    useLayout(1);
    setSources("per-window", "true");
    const auto unknown = timedType(russianText);
    setSources("per-window", "false");
    EXPECT_FALSE(unknown);
    ASSERT_TRUE(timedType(russianText));
    EXPECT_EQ(receivedText(output, russianText.size(), 3s), russianText);
}

// Latin letters are the US layout's keys and the Unicode entry uses them: both are typed with the key held that
// puts the next layout (US) in effect while Russian stays the layout the user chose.
TEST_F(GnomeLayoutTypingTest, WithTheSecondLayoutInEffectLatinLettersAndOtherCharactersArriveExactly) {
    useLayout(1);
    const std::string text = "да hello, World \u4e2d\u00e9\U0001F600 ещё\n";
    ASSERT_TRUE(timedType(text));
    EXPECT_EQ(receivedText(output, text.size(), 3s), text);
    ASSERT_TRUE(timedType("да"));
    EXPECT_EQ(receivedText(output, text.size() + std::string("да").size(), 3s), text + "да")
        << "the layout the user chose is still in effect";
}

} // namespace
} // namespace keyferry
