#pragma once

#include "AppDelegate.h"
#include "CompanionService.h"
#include "FakeClock.h"
#include "InMemoryDefaults.h"
#include "InMemorySecretBackend.h"
#include "ManualSerialQueue.h"
#include "RecordingKeyboardPoster.h"
#include "ScriptedHttpClient.h"
#include "ScriptedWebSocketFactory.h"
#include "SettableAccessibilityProbe.h"
#include "SteppedMainThread.h"
#include "TempFolder.h"
#include "VirtualClock.h"

#include <QStringList>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace keyferry::uitest {

// The whole shell on the real service over the fakes, with a home folder of its own (HOME and
// XDG_CONFIG_HOME point into a temporary folder, so the login registration never touches the real one).
// Nothing runs by itself: settle() runs the service's queue, the reports it posts and the shell's work due
// now; advance() moves the one virtual clock of the service's queue and the shell's main-thread queue.
class ShellHarness {
public:
    ShellHarness();
    ~ShellHarness();

    // Stores a pairing as a finished pairing flow leaves it.
    void markPaired();
    // Builds the delegate and runs its launch sequence (nothing else runs yet).
    AppDelegate& launch(const QStringList& arguments = {}, bool trayAvailable = true);
    // Runs the service's queue, the main thread and the shell's queue until all are idle.
    void settle();
    // Moves the clock forward in steps of at most `step`, settling after each.
    void advance(double seconds, double step = 0.05);

    // Answers the oldest pending phone-list request.
    void answerPhones(const std::vector<PairedPhone>& phones);
    // Plays the service confirming the newest socket.
    void confirmConnection();
    // Sends a text to type over the newest socket.
    void sendText(const std::string& id, const std::string& text);

    QWidget& mainWindow();
    QWidget& codeWindow();
    std::filesystem::path autostartEntry() const;

    static std::string phonesJson(const std::vector<PairedPhone>& phones);
    static PairedPhone phone(const std::string& id, const std::string& name);

    TempFolder home{"keyferry-shell-home"};
    fakes::VirtualClock time;
    fakes::ManualSerialQueue queue{time};
    SteppedMainThread mainThread;
    fakes::FakeClock clock{queue};
    fakes::ScriptedHttpClient http;
    fakes::ScriptedWebSocketFactory webSockets;
    fakes::InMemoryDefaults defaults;
    fakes::InMemorySecretBackend secrets;
    fakes::RecordingKeyboardPoster keyboard;
    fakes::SettableAccessibilityProbe accessibility;
    fakes::ManualSerialQueue shellQueue{time}; // the main thread's delayed work
    std::shared_ptr<CompanionService> service;
    std::unique_ptr<AppDelegate> delegate;
};

} // namespace keyferry::uitest
