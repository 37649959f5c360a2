#include "TypingBackendChoice.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace keyferry {
namespace {

// Routes that work, and the order in which the choice asked about them.
class Routes {
public:
    explicit Routes(std::set<TypingBackend> workingBackends) : working(std::move(workingBackends)) {}

    TypingRouteTest test() {
        return [this](TypingBackend backend) {
            asked.push_back(backend);
            return working.contains(backend);
        };
    }

    std::set<TypingBackend> working;
    std::vector<TypingBackend> asked;
};

TypingSession wayland(std::string desktop = "sway") {
    return {"wayland", std::move(desktop), true, true};
}
TypingSession x11() {
    return {"x11", "XFCE", false, true};
}

TEST(TypingBackendChoice, AnX11SessionKeepsXTestAndProbesNothingElse) {
    Routes routes({TypingBackend::xtest, TypingBackend::virtualKeyboard});
    EXPECT_EQ(chooseTypingBackend(x11(), routes.test()).backend, TypingBackend::xtest);
    EXPECT_EQ(routes.asked, (std::vector<TypingBackend>{TypingBackend::xtest}));
}

TEST(TypingBackendChoice, AWaylandSessionPrefersTheVirtualKeyboard) {
    Routes routes({TypingBackend::xtest, TypingBackend::virtualKeyboard, TypingBackend::gnomeRemoteDesktop});
    const auto choice = chooseTypingBackend(wayland(), routes.test());
    EXPECT_EQ(choice.backend, TypingBackend::virtualKeyboard);
    EXPECT_TRUE(choice.missing.empty());
    EXPECT_EQ(routes.asked, (std::vector<TypingBackend>{TypingBackend::virtualKeyboard}));
}

TEST(TypingBackendChoice, AWaylandSessionTriesGnomeThenKdeInThatOrder) {
    Routes routes({TypingBackend::kdeFakeInput});
    EXPECT_EQ(chooseTypingBackend(wayland("KDE"), routes.test()).backend, TypingBackend::kdeFakeInput);
    EXPECT_EQ(routes.asked,
              (std::vector<TypingBackend>{TypingBackend::virtualKeyboard, TypingBackend::gnomeRemoteDesktop,
                                          TypingBackend::kdeFakeInput}));
    Routes gnome({TypingBackend::gnomeRemoteDesktop, TypingBackend::kdeFakeInput});
    EXPECT_EQ(chooseTypingBackend(wayland("GNOME"), gnome.test()).backend, TypingBackend::gnomeRemoteDesktop);
}

TEST(TypingBackendChoice, AWaylandSessionNeverFallsBackToXTestWhichReachesXwaylandAlone) {
    Routes routes({TypingBackend::xtest});
    const auto choice = chooseTypingBackend(wayland(), routes.test());
    EXPECT_EQ(choice.backend, TypingBackend::none);
    EXPECT_EQ(std::count(routes.asked.begin(), routes.asked.end(), TypingBackend::xtest), 0);
}

TEST(TypingBackendChoice, NothingWorkingSaysWhatTheDesktopLacksAndWhereToReadMoreInOneLine) {
    Routes none({});
    const auto wlroots = chooseTypingBackend(wayland(), none.test());
    EXPECT_EQ(wlroots.backend, TypingBackend::none);
    EXPECT_NE(wlroots.missing.find("virtual keyboard"), std::string::npos) << wlroots.missing;
    EXPECT_NE(wlroots.missing.find("README"), std::string::npos) << wlroots.missing;
    EXPECT_EQ(wlroots.missing.find('\n'), std::string::npos);
    EXPECT_NE(chooseTypingBackend(wayland("KDE"), none.test()).missing.find("KDE"), std::string::npos);
    EXPECT_NE(chooseTypingBackend(wayland("ubuntu:GNOME"), none.test()).missing.find("GNOME"), std::string::npos);
    EXPECT_NE(chooseTypingBackend(x11(), none.test()).missing.find("XTEST"), std::string::npos);
}

TEST(TypingBackendChoice, GnomeAndKdeSessionsAreToldWhatTheirRouteLacks) {
    Routes none({});
    const auto gnome = chooseTypingBackend(wayland("GNOME"), none.test()).missing;
    EXPECT_NE(gnome.find("org.gnome.Mutter.RemoteDesktop"), std::string::npos) << gnome;
    const auto kde = chooseTypingBackend(wayland("KDE"), none.test()).missing;
    EXPECT_NE(kde.find("desktop entry"), std::string::npos) << kde;
    EXPECT_EQ(kde.find("yet"), std::string::npos) << kde;
}

TEST(TypingBackendChoice, WithoutASessionTypeTheDisplaysDecide) {
    Routes routes({TypingBackend::xtest, TypingBackend::virtualKeyboard});
    EXPECT_EQ(chooseTypingBackend({"", "", true, true}, routes.test()).backend, TypingBackend::virtualKeyboard);
    EXPECT_EQ(chooseTypingBackend({"tty", "", false, true}, routes.test()).backend, TypingBackend::xtest);
    const auto nowhere = chooseTypingBackend({"tty", "", false, false}, routes.test());
    EXPECT_EQ(nowhere.backend, TypingBackend::none);
    EXPECT_NE(nowhere.missing.find("DISPLAY"), std::string::npos);
}

TEST(TypingBackendChoice, TheSessionTypeWinsOverTheDisplaysSet) {
    Routes routes({TypingBackend::xtest, TypingBackend::virtualKeyboard});
    EXPECT_EQ(chooseTypingBackend({"x11", "", true, true}, routes.test()).backend, TypingBackend::xtest);
    EXPECT_TRUE(TypingSession({"x11", "", true, true}).isX11());
    EXPECT_FALSE(TypingSession({"wayland", "", true, true}).isX11());
}

TEST(TypingBackendChoice, ARequestedBackendIsTakenOnlyWhenItWorks) {
    Routes routes({TypingBackend::xtest});
    EXPECT_EQ(chooseRequestedTypingBackend(TypingBackend::xtest, routes.test()).backend, TypingBackend::xtest);
    const auto refused = chooseRequestedTypingBackend(TypingBackend::virtualKeyboard, routes.test());
    EXPECT_EQ(refused.backend, TypingBackend::none);
    EXPECT_NE(refused.missing.find("virtual-keyboard"), std::string::npos) << refused.missing;
}

TEST(TypingBackendChoice, BackendNamesRoundTrip) {
    for (const auto backend : {TypingBackend::xtest, TypingBackend::virtualKeyboard, TypingBackend::gnomeRemoteDesktop,
                               TypingBackend::kdeFakeInput}) {
        EXPECT_EQ(typingBackendNamed(typingBackendName(backend)), backend);
    }
    EXPECT_EQ(typingBackendNamed("gnome"), TypingBackend::gnomeRemoteDesktop);
    EXPECT_EQ(typingBackendNamed("uinput"), std::nullopt);
    EXPECT_EQ(typingBackendNamed("none"), std::nullopt);
}

} // namespace
} // namespace keyferry
