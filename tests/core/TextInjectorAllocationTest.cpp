#include "TextInjector.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>

// Counts the heap allocations of the test's own thread while `countingAllocations` is set; otherwise the
// global allocation functions behave as usual.
namespace {
thread_local bool countingAllocations = false;
thread_local std::size_t allocationCount = 0;
} // namespace

void* operator new(std::size_t size) {
    if (countingAllocations) {
        ++allocationCount;
    }
    if (void* memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace keyferry {
namespace {

// A keyboard and a probe that allocate nothing themselves, so that only the injector's allocations count.
class CountingPoster : public KeyboardPoster {
public:
    bool postKeyPair(std::u16string_view) override {
        ++pairs;
        return true;
    }
    std::size_t pairs = 0;
};

class TrustingProbe : public AccessibilityProbe {
public:
    bool isTrusted(bool) override { return true; }
};

std::size_t allocationsToType(TextInjector& injector, const std::string& text) {
    allocationCount = 0;
    countingAllocations = true;
    const bool typed = injector.insert(text);
    countingAllocations = false;
    EXPECT_TRUE(typed);
    return allocationCount;
}

TEST(TextInjectorAllocation, OneCopyOfTheTextPerCallAndNothingPerChunk) {
    CountingPoster poster;
    TrustingProbe probe;
    TextInjector injector(poster, probe);
    std::string longText;
    for (int line = 0; line < 1000; ++line) {
        longText += "line \xC3\xA9 \xF0\x9F\x98\x80\r\n";
    }
    EXPECT_LE(allocationsToType(injector, "a\r\nb"), 1u);
    EXPECT_LE(allocationsToType(injector, longText), 1u); // 10,000 units, in over 500 chunks
    EXPECT_GT(poster.pairs, 500u);
}

} // namespace
} // namespace keyferry
