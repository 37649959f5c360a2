#include "SingleInstance.h"
#include "QtEventPause.h"
#include "TempFolder.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QLocalServer>

#include <gtest/gtest.h>

#include <chrono>
#include <future>

namespace keyferry {
namespace {

// Asks from another thread (the asking side blocks, the listening side needs this thread's event loop).
bool notifyFromAnotherThread(const QString& name) {
    auto answer = std::async(std::launch::async, [name] { return SingleInstance(name).notifyRunningInstance(3000); });
    testing::processEventsUntil(
        [&answer] { return answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
    return answer.get();
}

QString instanceIn(const TempFolder& folder) {
    return QString::fromStdString((folder / "instance").string());
}

TEST(SingleInstance, NobodyRunningMeansNobodyAnswers) {
    const TempFolder folder;
    EXPECT_FALSE(SingleInstance(instanceIn(folder)).notifyRunningInstance(500));
}

TEST(SingleInstance, ALaterCopyMakesTheRunningOneReopen) {
    const TempFolder folder;
    const QString name = instanceIn(folder);
    SingleInstance running(name);
    int reopens = 0;
    running.onReopen = [&reopens] { ++reopens; };
    ASSERT_TRUE(running.listen());
    EXPECT_TRUE(notifyFromAnotherThread(name));
    EXPECT_TRUE(notifyFromAnotherThread(name));
    EXPECT_EQ(reopens, 2);
}

TEST(SingleInstance, SocketLeftBehindByACrashIsTakenOver) {
    const TempFolder folder;
    const QString name = instanceIn(folder);
    {
        // A stale socket file: created by a server that never cleans up after itself.
        QFile stale(name);
        ASSERT_TRUE(stale.open(QIODevice::WriteOnly));
    }
    EXPECT_FALSE(SingleInstance(name).notifyRunningInstance(500));
    SingleInstance running(name);
    int reopens = 0;
    running.onReopen = [&reopens] { ++reopens; };
    ASSERT_TRUE(running.listen());
    EXPECT_TRUE(notifyFromAnotherThread(name));
    EXPECT_EQ(reopens, 1);
}

TEST(SingleInstance, DefaultNameLivesInTheUsersRuntimeFolder) {
    const TempFolder runtime;
    qputenv("XDG_RUNTIME_DIR", QByteArray::fromStdString(runtime.path().string()));
    const QString name = SingleInstance::defaultName();
    EXPECT_TRUE(name.startsWith(QString::fromStdString(runtime.path().string()) + QStringLiteral("/")));
    EXPECT_TRUE(name.contains(QStringLiteral("com.quillix.companion")));
    EXPECT_TRUE(QFileInfo(name).isAbsolute());
}

} // namespace
} // namespace keyferry
