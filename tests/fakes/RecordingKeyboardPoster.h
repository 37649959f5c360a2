#pragma once

#include "KeyboardPoster.h"

#include <cstddef>
#include <string>
#include <vector>

namespace keyferry::fakes {

// A keyboard that records each key pair it is asked to post, as the UTF-16 units it carries.
// Failures: failAtPost(n) makes the n-th post counted from the moment of the call fail (1 is the very next
// post); only that one post fails, later ones succeed again. `failEveryPost` makes every post fail.
// A failed post is counted in attempts() but typed nothing. canType answers false for a text holding any unit
// of `untypable`, and remembers every text it was asked about. Single-threaded.
class RecordingKeyboardPoster : public KeyboardPoster {
public:
    bool postKeyPair(std::u16string_view units) override;
    bool canType(std::u16string_view text) override;
    void prepare(std::u16string_view text) override;

    // Every text announced before its chunks, in order, with the number of chunks posted before each.
    struct Announcement {
        std::u16string text;
        std::size_t chunksBefore = 0;
    };
    const std::vector<Announcement>& announcements() const { return announced; }

    void failAtPost(std::size_t n);
    bool failEveryPost = false;
    std::u16string untypable;

    const std::vector<std::u16string>& askedToType() const { return asked; }

    // Chunks posted successfully, in order.
    const std::vector<std::u16string>& chunks() const { return posted; }
    std::vector<std::size_t> chunkSizes() const;
    // Every call, failed ones included.
    std::size_t attempts() const { return attemptCount; }
    // Everything typed, as UTF-8 (a surrogate left unpaired reads as U+FFFD).
    std::string typedText() const;
    std::u16string typedUnits() const;
    void clear() { posted.clear(); }

private:
    std::vector<std::u16string> posted;
    std::vector<std::u16string> asked;
    std::vector<Announcement> announced;
    std::size_t attemptCount = 0;
    std::size_t failingAttempt = 0; // 0: none
};

} // namespace keyferry::fakes
