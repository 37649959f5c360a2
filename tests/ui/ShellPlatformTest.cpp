#include "QtEventPause.h"
#include "QtPrinters.h"
#include "TerminationSignals.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <csignal>

namespace keyferry {
namespace {

TEST(TerminationSignals, TermIsTurnedIntoACallOnTheMainThread) {
    int calls = 0;
    {
        const TerminationSignals termination([&calls] { ++calls; });
        std::raise(SIGTERM);
        EXPECT_EQ(calls, 0); // nothing runs inside the signal handler
        EXPECT_TRUE(testing::processEventsUntil([&calls] { return calls == 1; }, std::chrono::seconds(2)));
        std::raise(SIGINT);
        EXPECT_TRUE(testing::processEventsUntil([&calls] { return calls == 2; }, std::chrono::seconds(2)));
    }
}

} // namespace
} // namespace keyferry
