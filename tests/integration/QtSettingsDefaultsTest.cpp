#include "QtSettingsDefaults.h"
#include "TempFolder.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include <sys/stat.h>

namespace keyferry {
namespace {

class QtSettingsDefaultsTest : public ::testing::Test {
protected:
    QString path() const { return inFolder("config/quillix/companion.ini"); }
    QString inFolder(const std::string& name) const { return QString::fromStdString((folder / name).string()); }

    static unsigned mode(const QString& file) {
        struct stat status {};
        stat(QFile::encodeName(file).constData(), &status);
        return status.st_mode & 0777;
    }

    TempFolder folder{"keyferry-settings"};
};

TEST_F(QtSettingsDefaultsTest, ValuesRoundTripExactlyThroughTheFile) {
    const std::vector<std::vector<std::string>> arrays = {
        {},
        {"one"},
        {""},
        {"a,b", "c, d", "\"quoted\"", "back\\slash", "semi;colon", "equals=sign", "#hash", "  spaces  "},
        {"héllo", "日本語", "emoji 😀", "line\nbreak", "@Variant(x)", "@Invalid()", "true"},
    };
    {
        QtSettingsDefaults defaults(path());
        defaults.setString("quillix.computerId", "id, with \"quotes\", commas and é");
        defaults.setString("quillix.empty", "");
        defaults.setString("quillix.looksLikeList", "a, b, c");
        defaults.setBoolean("quillix.paired", true);
        defaults.setBoolean("quillix.off", false);
        for (std::size_t i = 0; i < arrays.size(); ++i) {
            defaults.setStringArray("quillix.array" + std::to_string(i), arrays[i]);
        }
    }
    QtSettingsDefaults reread(path()); // a new object reads what the first one wrote
    EXPECT_EQ(reread.string("quillix.computerId"), "id, with \"quotes\", commas and é");
    EXPECT_EQ(reread.string("quillix.empty"), "");
    EXPECT_EQ(reread.string("quillix.looksLikeList"), "a, b, c");
    EXPECT_EQ(reread.boolean("quillix.paired"), true);
    EXPECT_EQ(reread.boolean("quillix.off"), false);
    for (std::size_t i = 0; i < arrays.size(); ++i) {
        EXPECT_EQ(reread.stringArray("quillix.array" + std::to_string(i)), arrays[i]) << "array " << i;
    }
}

TEST_F(QtSettingsDefaultsTest, TypeMismatchesAndMissingKeysReadAsAbsent) {
    QtSettingsDefaults defaults(path());
    defaults.setString("text", "true");
    defaults.setBoolean("flag", true);
    defaults.setStringArray("list", {"x"});
    EXPECT_EQ(defaults.boolean("text"), std::nullopt);
    EXPECT_EQ(defaults.stringArray("text"), std::nullopt);
    EXPECT_EQ(defaults.string("flag"), std::nullopt);
    EXPECT_EQ(defaults.stringArray("flag"), std::nullopt);
    EXPECT_EQ(defaults.string("list"), std::nullopt);
    EXPECT_EQ(defaults.boolean("list"), std::nullopt);
    EXPECT_EQ(defaults.string("missing"), std::nullopt);
    EXPECT_EQ(defaults.boolean("missing"), std::nullopt);
    EXPECT_EQ(defaults.stringArray("missing"), std::nullopt);
}

TEST_F(QtSettingsDefaultsTest, ForeignValuesInTheFileReadAsAbsent) {
    {
        QtSettingsDefaults defaults(path());
        defaults.setString("kept", "yes");
    }
    {
        QSettings foreign(path(), QSettings::IniFormat);
        foreign.setValue(QStringLiteral("plain"), QStringLiteral("not json"));
        foreign.setValue(QStringLiteral("mixed"), QStringLiteral("[\"a\", 1]"));
        foreign.setValue(QStringLiteral("number"), 5);
    }
    QtSettingsDefaults defaults(path());
    EXPECT_EQ(defaults.string("plain"), std::nullopt);
    EXPECT_EQ(defaults.stringArray("mixed"), std::nullopt);
    EXPECT_EQ(defaults.string("number"), std::nullopt);
    EXPECT_EQ(defaults.boolean("number"), std::nullopt);
    EXPECT_EQ(defaults.string("kept"), "yes");
}

TEST_F(QtSettingsDefaultsTest, RemoveForgetsTheKey) {
    QtSettingsDefaults defaults(path());
    defaults.setBoolean("quillix.paired", true);
    defaults.remove("quillix.paired");
    defaults.remove("never.written");
    EXPECT_EQ(defaults.boolean("quillix.paired"), std::nullopt);
    EXPECT_EQ(QtSettingsDefaults(path()).boolean("quillix.paired"), std::nullopt);
}

TEST_F(QtSettingsDefaultsTest, FileIsReadableByTheUserOnlyAfterEveryWrite) {
    QtSettingsDefaults defaults(path());
    EXPECT_EQ(mode(path()), 0600u);
    defaults.setString("quillix.computerId", "c1");
    EXPECT_EQ(mode(path()), 0600u);
    defaults.setStringArray("quillix.processedMessageIds", {"m1", "m2"});
    EXPECT_EQ(mode(path()), 0600u);
    EXPECT_EQ(mode(QFileInfo(path()).absolutePath()), 0700u);
}

TEST_F(QtSettingsDefaultsTest, AFileThatWasOpenToOthersIsMadePrivate) {
    QDir().mkpath(QFileInfo(path()).absolutePath());
    QFile file(path());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadOther | QFile::ReadGroup);
    QtSettingsDefaults defaults(path());
    defaults.setBoolean("quillix.paired", false);
    EXPECT_EQ(mode(path()), 0600u);
}

TEST_F(QtSettingsDefaultsTest, UserFileLivesInTheXdgConfigFolder) {
    const QByteArray saved = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(inFolder("xdg")));
    const QString expected = inFolder("xdg/quillix/companion.ini");
    EXPECT_EQ(QtSettingsDefaults::userFilePath(), expected);
    {
        QtSettingsDefaults defaults;
        defaults.setBoolean("quillix.paired", true);
        EXPECT_EQ(defaults.filePath(), expected);
    }
    EXPECT_TRUE(QFile::exists(expected));
    if (saved.isNull()) {
        qunsetenv("XDG_CONFIG_HOME");
    } else {
        qputenv("XDG_CONFIG_HOME", saved);
    }
}

} // namespace
} // namespace keyferry
