// The bindings of borrowed keycodes as the X server holds them, on a private Xvfb: characters on their
// levels, and a keycode that carries none of them any more back with its own symbols.
// GoogleTest first: Xlib's macros (None, Bool) would break its templates.
#include <gtest/gtest.h>

#include "SpareKeycodePool.h"
#include "SpareKeycodeWriter.h"
#include "X11Keymap.h"
#include "XvfbDisplay.h"

#include <X11/Xlib.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <vector>

namespace keyferry {
namespace {

using namespace std::chrono_literals;

constexpr unsigned long hanZhong = 0x1004E2D; // 中
constexpr unsigned long cyrillicZhe = 0x1000416;

class SpareKeycodeWriterTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("DISPLAY", display.name().c_str(), 1);
        connection = XOpenDisplay(nullptr);
        ASSERT_NE(connection, nullptr);
        keymap = X11Keymap::load(connection);
        ASSERT_TRUE(keymap.has_value());
        ASSERT_FALSE(keymap->spareKeycodes().empty());
    }

    void TearDown() override {
        keymap.reset();
        if (connection != nullptr) {
            XCloseDisplay(connection);
        }
    }

    // The plain and shifted symbols the server has on `keycode` now.
    std::vector<unsigned long> serverSymbols(unsigned keycode) {
        XSync(connection, False);
        int perKeycode = 0;
        KeySym* symbols = XGetKeyboardMapping(connection, static_cast<KeyCode>(keycode), 1, &perKeycode);
        std::vector<unsigned long> firstTwo(symbols, symbols + std::min(perKeycode, 2));
        XFree(symbols);
        return firstTwo;
    }

    XvfbDisplay display;
    Display* connection = nullptr;
    std::optional<X11Keymap> keymap;
};

TEST_F(SpareKeycodeWriterTest, BindsCharactersOnTheirLevelsAndGivesBackAKeycodeThePoolNoLongerBinds) {
    const unsigned keycode = keymap->spareKeycodes().front();
    SpareKeycodePool pool({keycode}, 2, 250ms);
    const SpareKeycodeWriter writer(connection, *keymap, pool);
    pool.bind({hanZhong, cyrillicZhe}, {}, {});
    ASSERT_TRUE(writer.bind({keycode}));
    EXPECT_EQ(serverSymbols(keycode), (std::vector<unsigned long>{hanZhong, cyrillicZhe}));

    pool.forgetBindings();
    ASSERT_TRUE(writer.bind({keycode}));
    auto original = keymap->originalSymbols(keycode);
    original.resize(2, NoSymbol);
    EXPECT_EQ(serverSymbols(keycode), original);
}

} // namespace
} // namespace keyferry
