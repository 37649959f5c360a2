#pragma once

#include "CompanionService.h"
#include "QtHttpClient.h"
#include "QtMainThread.h"
#include "QtSerialQueue.h"
#include "QtTrust.h"
#include "QtWebSocketFactory.h"
#include "SystemClock.h"

#include <chrono>
#include <memory>
#include <string>

namespace keyferry {

// Every adapter the service runs on in this application, built in dependency order (the serial queue
// first). Owned by the entry point; must outlive the service. Built and destroyed on the main thread, after
// the application object exists. Destruction stops the queue first, so no queued work is still using an
// adapter while the adapters go.
class PlatformPorts {
public:
    explicit PlatformPorts(const QtTrust& trust);
    ~PlatformPorts();

    CompanionServicePorts ports();
    AccessibilityProbe& accessibility() { return *typing.probe; }
    // One line saying what this desktop lacks for typing, and where to read more; empty when it can type.
    const std::string& typingMissing() const { return typing.missing; }

    // Gives work already queued (such as the closing of the socket at quit) up to `limit` to run before the
    // queue is torn down.
    void finishQueuedWork(std::chrono::milliseconds limit);

    // Stops the queue's thread: waits for the task under way and drops the rest. After this nothing runs on
    // the queue, so the service may be released on the main thread. A second call does nothing.
    void stopQueue();

private:
    // The typing adapters this session offers, and what it lacks for typing (empty when nothing).
    struct Typing {
        std::unique_ptr<KeyboardPoster> poster;
        std::unique_ptr<AccessibilityProbe> probe;
        std::string missing;
    };

    // The platform's own adapters, defined per platform (linux/PlatformAdapters.cpp,
    // macos/PlatformAdapters.cpp).
    static std::unique_ptr<DefaultsStore> makeDefaultsStore();
    static std::unique_ptr<SecretBackend> makeSecretBackend();
    static Typing makeTyping();

    QtSerialQueue queue;
    QtMainThread mainThread;
    SystemClock clock;
    QtHttpClient http;
    QtWebSocketFactory webSockets;
    std::unique_ptr<DefaultsStore> defaults;
    std::unique_ptr<SecretBackend> secrets;
    Typing typing;
};

} // namespace keyferry
