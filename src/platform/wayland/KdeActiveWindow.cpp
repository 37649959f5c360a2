#include "KdeActiveWindow.h"

#include "SeatDiscovery.h"
#include "WaylandOwned.h"
#include "WaylandRoundtrip.h"
#include "plasma-window-management-client-protocol.h"

#include <wayland-client.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace keyferry {

namespace {

constexpr std::uint32_t uuidsSince = 12; // get_window_by_uuid and the stacking order by uuid
constexpr std::uint32_t newestKnown = 16;
constexpr std::chrono::milliseconds answerLimit(1000);

struct Window {
    WaylandOwned<org_kde_plasma_window> proxy;
    std::uint32_t state = 0;
    std::optional<pid_t> process;
};

// One look at KDE's windows: the registry's window management, the stacking order it sends on binding, then
// each window's state and process, sent when the window is asked for.
class WindowLook {
public:
    std::optional<pid_t> activeProcess();

    void globalAdvertised(wl_registry* registry, std::uint32_t name, const char* interface, std::uint32_t version);
    void stackingOrder(const char* uuids) { stacking = uuids; }
    static void stateChanged(void* data, org_kde_plasma_window*, std::uint32_t flags) {
        static_cast<Window*>(data)->state = flags;
    }
    static void processChanged(void* data, org_kde_plasma_window*, std::uint32_t pid) {
        static_cast<Window*>(data)->process = static_cast<pid_t>(pid);
    }

private:
    bool askForWindows();

    WaylandOwned<wl_display> display; // first: it ends after its proxies
    WaylandOwned<wl_registry> registry;
    WaylandOwned<org_kde_plasma_window_management> management;
    std::string stacking;
    std::vector<std::unique_ptr<Window>> windows;
};

void onStackingOrderUuids(void* data, org_kde_plasma_window_management*, const char* uuids) {
    static_cast<WindowLook*>(data)->stackingOrder(uuids);
}

template <typename... Arguments> void ignore(void*, org_kde_plasma_window_management*, Arguments...) {}
template <typename... Arguments> void ignoreWindow(void*, org_kde_plasma_window*, Arguments...) {}

const org_kde_plasma_window_management_listener managementListener{ignore<std::uint32_t>, ignore<std::uint32_t>,
                                                                   ignore<wl_array*>, onStackingOrderUuids,
                                                                   ignore<std::uint32_t, const char*>};

const org_kde_plasma_window_listener windowListener{
    ignoreWindow<const char*>,                                              // title
    ignoreWindow<const char*>,                                              // app id
    WindowLook::stateChanged,                                               // state
    ignoreWindow<std::int32_t>,                                             // virtual desktop
    ignoreWindow<const char*>,                                              // themed icon name
    ignoreWindow<>,                                                         // unmapped
    ignoreWindow<>,                                                         // initial state
    ignoreWindow<org_kde_plasma_window*>,                                   // parent window
    ignoreWindow<std::int32_t, std::int32_t, std::uint32_t, std::uint32_t>, // geometry
    ignoreWindow<>,                                                         // icon changed
    WindowLook::processChanged,                                             // pid
    ignoreWindow<const char*>,                                              // virtual desktop entered
    ignoreWindow<const char*>,                                              // virtual desktop left
    ignoreWindow<const char*, const char*>,                                 // application menu
    ignoreWindow<const char*>,                                              // activity entered
    ignoreWindow<const char*>,                                              // activity left
    ignoreWindow<const char*>,                                              // resource name
};

void WindowLook::globalAdvertised(wl_registry* source, std::uint32_t name, const char* interface,
                                  std::uint32_t version) {
    if (std::string_view(interface) == org_kde_plasma_window_management_interface.name && !management &&
        version >= uuidsSince) {
        management = WaylandOwned(
            static_cast<org_kde_plasma_window_management*>(wl_registry_bind(
                source, name, &org_kde_plasma_window_management_interface, std::min(version, newestKnown))),
            org_kde_plasma_window_management_destroy);
        org_kde_plasma_window_management_add_listener(management.get(), &managementListener, this);
    }
}

std::optional<pid_t> WindowLook::activeProcess() {
    if (!askForWindows()) {
        return std::nullopt;
    }
    for (const auto& window : windows) {
        if ((window->state & ORG_KDE_PLASMA_WINDOW_MANAGEMENT_STATE_ACTIVE) != 0) {
            return window->process;
        }
    }
    return std::nullopt;
}

bool WindowLook::askForWindows() {
    display = WaylandOwned(wl_display_connect(nullptr), wl_display_disconnect);
    if (!display) {
        return false;
    }
    registry = WaylandOwned(wl_display_get_registry(display.get()), wl_registry_destroy);
    wl_registry_add_listener(registry.get(), &SeatDiscovery<WindowLook>::registryListener, this);
    // The first roundtrip binds the window management, the second brings the stacking order sent on binding.
    if (!roundtripWithin(display.get(), answerLimit) || !management || !roundtripWithin(display.get(), answerLimit)) {
        return false;
    }
    for (std::size_t start = 0; start < stacking.size();) {
        const std::size_t end = std::min(stacking.find(';', start), stacking.size());
        auto window = std::make_unique<Window>();
        const std::string uuid = stacking.substr(start, end - start);
        window->proxy =
            WaylandOwned(org_kde_plasma_window_management_get_window_by_uuid(management.get(), uuid.c_str()),
                         org_kde_plasma_window_destroy);
        org_kde_plasma_window_add_listener(window->proxy.get(), &windowListener, window.get());
        windows.push_back(std::move(window));
        start = end + 1;
    }
    return roundtripWithin(display.get(), answerLimit);
}

} // namespace

std::optional<pid_t> kdeActiveWindowProcess() {
    WindowLook look;
    return look.activeProcess();
}

} // namespace keyferry
