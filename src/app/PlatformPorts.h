#pragma once

#include "CompanionService.h"
#include "QtHttpClient.h"
#include "QtMainThread.h"
#include "QtSerialQueue.h"
#include "QtSettingsDefaults.h"
#include "QtTrust.h"
#include "QtWebSocketFactory.h"
#include "SystemClock.h"

#include <chrono>
#include <memory>

namespace keyferry {

// Every adapter the service runs on in this application, built in dependency order (the serial queue
// first) and destroyed in reverse. Owned by the entry point; must outlive the service. Built and destroyed
// on the main thread, after the application object exists.
class PlatformPorts {
public:
    explicit PlatformPorts(const QtTrust& trust);
    ~PlatformPorts();

    CompanionServicePorts ports();
    AccessibilityProbe& accessibility() { return *accessibilityProbe; }

    // Gives work already queued (such as the closing of the socket at quit) up to `limit` to run before the
    // queue is torn down.
    void finishQueuedWork(std::chrono::milliseconds limit);

private:
    static std::unique_ptr<SecretBackend> makeSecretBackend();
    static std::unique_ptr<KeyboardPoster> makeKeyboardPoster();
    static std::unique_ptr<AccessibilityProbe> makeAccessibilityProbe();

    QtSerialQueue queue;
    QtMainThread mainThread;
    SystemClock clock;
    QtHttpClient http;
    QtWebSocketFactory webSockets;
    QtSettingsDefaults defaults;
    std::unique_ptr<SecretBackend> secrets;
    std::unique_ptr<KeyboardPoster> keyboard;
    std::unique_ptr<AccessibilityProbe> accessibilityProbe;
};

} // namespace keyferry
