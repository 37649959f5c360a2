#include "RecordingKeyboardPoster.h"

#include "Utf16.h"

namespace keyferry::fakes {

bool RecordingKeyboardPoster::postKeyPair(std::u16string_view units) {
    ++attemptCount;
    if (failEveryPost || attemptCount == failingAttempt) {
        return false;
    }
    posted.emplace_back(units);
    return true;
}

bool RecordingKeyboardPoster::canType(std::u16string_view text) {
    asked.emplace_back(text);
    return text.find_first_of(untypable) == std::u16string_view::npos;
}

void RecordingKeyboardPoster::failAtPost(std::size_t n) {
    failingAttempt = n == 0 ? 0 : attemptCount + n;
}

std::vector<std::size_t> RecordingKeyboardPoster::chunkSizes() const {
    std::vector<std::size_t> sizes;
    sizes.reserve(posted.size());
    for (const auto& chunk : posted) {
        sizes.push_back(chunk.size());
    }
    return sizes;
}

std::u16string RecordingKeyboardPoster::typedUnits() const {
    std::u16string all;
    for (const auto& chunk : posted) {
        all += chunk;
    }
    return all;
}

std::string RecordingKeyboardPoster::typedText() const {
    return utf8FromUtf16(typedUnits());
}

void RecordingKeyboardPoster::prepare(std::u16string_view text) {
    announced.push_back(Announcement{std::u16string(text), posted.size()});
}

} // namespace keyferry::fakes
