#include "TypingPorts.h"

#include "GnomeKeyPresser.h"
#include "GnomeRemoteDesktopProbe.h"
#include "KdeFakeInputProbe.h"
#include "KdeKeyPresser.h"
#include "LayoutKeyboardPoster.h"
#include "UnavailableKeyboardPoster.h"
#include "UnavailableTypingProbe.h"
#include "VirtualKeyboardPoster.h"
#include "VirtualKeyboardProbe.h"
#include "X11AccessibilityProbe.h"
#include "XTestKeyboardPoster.h"

namespace keyferry {

namespace {

// Whether a backend can type here now.
bool works(TypingBackend backend) {
    switch (backend) {
    case TypingBackend::xtest:
        return X11AccessibilityProbe().isTrusted(false);
    case TypingBackend::virtualKeyboard:
        return VirtualKeyboardProbe().isTrusted(false);
    case TypingBackend::gnomeRemoteDesktop:
        return GnomeRemoteDesktopProbe().isTrusted(false);
    case TypingBackend::kdeFakeInput:
        return KdeFakeInputProbe().isTrusted(false);
    case TypingBackend::none:
        break;
    }
    return false;
}

} // namespace

TypingPorts TypingPorts::make(std::optional<TypingBackend> requested) {
    const TypingSession session = TypingSession::fromEnvironment();
    TypingPorts ports{requested ? chooseRequestedTypingBackend(*requested, works) : chooseTypingBackend(session, works),
                      nullptr, nullptr};
    const TypingBackend backend = ports.choice.backend;
    if (backend == TypingBackend::virtualKeyboard) {
        ports.poster = std::make_unique<VirtualKeyboardPoster>();
        ports.probe = std::make_unique<VirtualKeyboardProbe>();
    } else if (backend == TypingBackend::gnomeRemoteDesktop) {
        ports.poster = std::make_unique<LayoutKeyboardPoster>(std::make_unique<GnomeKeyPresser>());
        ports.probe = std::make_unique<GnomeRemoteDesktopProbe>();
    } else if (backend == TypingBackend::kdeFakeInput) {
        ports.poster = std::make_unique<LayoutKeyboardPoster>(std::make_unique<KdeKeyPresser>());
        ports.probe = std::make_unique<KdeFakeInputProbe>();
    } else if (backend == TypingBackend::xtest || (backend == TypingBackend::none && !requested && session.isX11())) {
        ports.poster = std::make_unique<XTestKeyboardPoster>();
        ports.probe = std::make_unique<X11AccessibilityProbe>();
    } else {
        ports.poster = std::make_unique<UnavailableKeyboardPoster>();
        ports.probe = std::make_unique<UnavailableTypingProbe>();
    }
    return ports;
}

} // namespace keyferry
