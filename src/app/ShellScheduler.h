#pragma once

#include <functional>
#include <memory>

namespace keyferry {

// A repeating task of the shell. invalidate() stops it for good (a no-op when already invalid).
class ShellTimer {
public:
    virtual ~ShellTimer() = default;

    virtual void invalidate() = 0;
    virtual bool isValid() const = 0;
};

// Delayed work of the shell on the main thread: the window's auto-hide, the "Text inserted" reset, the
// pairing-code window's delayed close and the permission poll. Owned by whoever builds the shell and
// outliving it. Called and run on the main thread only; tasks always run later, never inside the call.
// Nothing here can fail.
class ShellScheduler {
public:
    virtual ~ShellScheduler() = default;

    // Runs `task` once, `seconds` from now. Cannot be called off.
    virtual void after(double seconds, std::function<void()> task) = 0;

    // Runs `tick` every `interval` seconds, the first time one interval from now, until invalidated.
    virtual std::shared_ptr<ShellTimer> repeating(double interval, std::function<void()> tick) = 0;
};

} // namespace keyferry
