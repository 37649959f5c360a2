#include "SingleInstance.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QLocalServer>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <chrono>
#include <future>

namespace keyferry {
namespace {

// Asks from another thread (the asking side blocks, the listening side needs this thread's event loop).
bool notifyFromAnotherThread(const QString& name) {
    auto answer = std::async(std::launch::async, [name] { return SingleInstance(name).notifyRunningInstance(3000); });
    while (answer.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return answer.get();
}

TEST(SingleInstance, NobodyRunningMeansNobodyAnswers) {
    QTemporaryDir folder;
    EXPECT_FALSE(SingleInstance(folder.filePath(QStringLiteral("instance"))).notifyRunningInstance(500));
}

TEST(SingleInstance, ALaterCopyMakesTheRunningOneReopen) {
    QTemporaryDir folder;
    const QString name = folder.filePath(QStringLiteral("instance"));
    SingleInstance running(name);
    int reopens = 0;
    running.onReopen = [&reopens] { ++reopens; };
    ASSERT_TRUE(running.listen());
    EXPECT_TRUE(notifyFromAnotherThread(name));
    EXPECT_TRUE(notifyFromAnotherThread(name));
    EXPECT_EQ(reopens, 2);
}

TEST(SingleInstance, SocketLeftBehindByACrashIsTakenOver) {
    QTemporaryDir folder;
    const QString name = folder.filePath(QStringLiteral("instance"));
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
    QTemporaryDir runtime;
    qputenv("XDG_RUNTIME_DIR", runtime.path().toUtf8());
    const QString name = SingleInstance::defaultName();
    EXPECT_TRUE(name.startsWith(runtime.path() + QStringLiteral("/")));
    EXPECT_TRUE(name.contains(QStringLiteral("com.quillix.companion")));
    EXPECT_TRUE(QFileInfo(name).isAbsolute());
}

} // namespace
} // namespace keyferry
