#include "UnicodeEntryReach.h"

#include <gtest/gtest.h>

#include <string>
#include <unistd.h>

namespace keyferry {
namespace {

// Lines of /proc/PID/maps, as the kernel writes them.
std::string mapsOf(std::initializer_list<const char*> paths) {
    std::string maps;
    for (const char* path : paths) {
        maps += "7f1c2a600000-7f1c2a6a4000 r--p 00000000 08:01 1234567                    ";
        maps += path;
        maps += "\n";
    }
    return maps;
}

constexpr const char* qt6Gui = "/usr/lib/x86_64-linux-gnu/libQt6Gui.so.6.4.2";
constexpr const char* qt5Gui = "/usr/lib/x86_64-linux-gnu/libQt5Gui.so.5.15.8";
constexpr const char* gtk3 = "/usr/lib/x86_64-linux-gnu/libgtk-3.so.0.2404.32";
constexpr const char* libc = "/usr/lib/x86_64-linux-gnu/libc.so.6";

TEST(UnicodeEntryReach, AQtProgramWithoutAnInputMethodDoesNotTakeTheEntry) {
    EXPECT_EQ(takesUnicodeEntry(mapsOf({libc, qt6Gui})), std::optional<bool>(false));
    EXPECT_EQ(takesUnicodeEntry(mapsOf({qt5Gui, "/usr/lib/x86_64-linux-gnu/qt5/plugins/platforminputcontexts/"
                                                "libcomposeplatforminputcontextplugin.so"})),
              std::optional<bool>(false))
        << "the compose plugin knows only compose sequences";
}

TEST(UnicodeEntryReach, AQtProgramWithAnInputMethodPluginTakesTheEntry) {
    EXPECT_EQ(takesUnicodeEntry(mapsOf({qt6Gui,
                                        "/usr/lib/x86_64-linux-gnu/qt6/plugins/platforminputcontexts/"
                                        "libcomposeplatforminputcontextplugin.so",
                                        "/usr/lib/x86_64-linux-gnu/qt6/plugins/platforminputcontexts/"
                                        "libibusplatforminputcontextplugin.so"})),
              std::optional<bool>(true));
}

TEST(UnicodeEntryReach, GtkTakesTheEntryButNotAQtProgramThatOnlyBorrowsGtksLook) {
    EXPECT_EQ(takesUnicodeEntry(mapsOf({libc, gtk3})), std::optional<bool>(true));
    EXPECT_EQ(
        takesUnicodeEntry(mapsOf({qt5Gui, gtk3, "/usr/lib/x86_64-linux-gnu/qt5/plugins/platformthemes/libqgtk3.so"})),
        std::optional<bool>(false));
}

TEST(UnicodeEntryReach, AnotherToolkitOrAProcessThatCannotBeReadIsNotKnown) {
    EXPECT_EQ(takesUnicodeEntry(mapsOf({libc})), std::nullopt);
    EXPECT_EQ(takesUnicodeEntry(""), std::nullopt);
    EXPECT_EQ(processTakesUnicodeEntry(getpid()), std::nullopt) << "this test links neither Qt nor GTK";
    EXPECT_EQ(processTakesUnicodeEntry(-1), std::nullopt);
}

} // namespace
} // namespace keyferry
