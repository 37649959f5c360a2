// Every UI test program runs inside one QApplication, on the offscreen platform unless told otherwise, in a
// fixed English (United States) locale so that times read the same everywhere.
#include <QApplication>
#include <QLocale>

#include <gtest/gtest.h>

#include <memory>

namespace {

class QtApplicationEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
            qputenv("QT_QPA_PLATFORM", "offscreen");
        }
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        application = std::make_unique<QApplication>(argc, argv);
        QApplication::setQuitOnLastWindowClosed(false);
    }
    void TearDown() override { application.reset(); }

private:
    int argc = 1;
    char name[16] = "keyferry-tests";
    char* argv[2] = {name, nullptr};
    std::unique_ptr<QApplication> application;
};

// gtest owns registered environments.
[[maybe_unused]] ::testing::Environment* const environment =
    ::testing::AddGlobalTestEnvironment(new QtApplicationEnvironment);

} // namespace
