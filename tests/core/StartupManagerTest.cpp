#include "StartupManager.h"
#include "TempFolder.h"

#include <gtest/gtest.h>

#include <cctype>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace keyferry {
namespace {

namespace fs = std::filesystem;

std::string readFile(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream content;
    content << stream.rdbuf();
    return content.str();
}

void writeFile(const fs::path& file, const std::string& content) {
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
}

// A home folder of its own for each test, with XDG_CONFIG_HOME unset unless a test sets it.
class StartupManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("HOME", home.c_str(), 1);
        unsetenv("XDG_CONFIG_HOME");
    }

    fs::path entry() const { return home / ".config" / "autostart" / "com.quillix.companion.desktop"; }

    TempFolder folder{"keyferry-startup"};
    const fs::path home = folder.path();
};

// Reads the lines of a desktop entry's [Desktop Entry] group into key -> raw value.
std::map<std::string, std::string> desktopEntryKeys(const std::string& content) {
    std::map<std::string, std::string> keys;
    std::istringstream lines(content);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "[Desktop Entry]");
    while (std::getline(lines, line)) {
        const auto equals = line.find('=');
        EXPECT_NE(equals, std::string::npos) << line;
        EXPECT_FALSE(keys.contains(line.substr(0, equals))) << "repeated key in " << line;
        keys[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return keys;
}

// Undoes the string escaping of the file format, then splits the Exec value into arguments the way a
// desktop launcher does (double quotes, backslash escapes inside them, %% for a percent sign). Inside quotes
// the four characters '"', '`', '$' and '\' must come escaped, and a backslash escapes nothing else.
std::vector<std::string> execArguments(const std::string& raw) {
    std::string value;
    for (std::size_t index = 0; index < raw.size(); ++index) {
        if (raw[index] == '\\' && index + 1 < raw.size()) {
            const char next = raw[++index];
            value += next == 'n' ? '\n' : next == 't' ? '\t' : next == 'r' ? '\r' : next == 's' ? ' ' : next;
        } else {
            value += raw[index];
        }
    }
    std::vector<std::string> arguments;
    std::string current;
    bool quoted = false;
    bool inArgument = false;
    for (std::size_t index = 0; index < value.size(); ++index) {
        const char character = value[index];
        if (quoted) {
            if (character == '\\') {
                const char escaped = value.at(++index);
                EXPECT_NE(std::string("\"`$\\").find(escaped), std::string::npos)
                    << "a backslash before '" << escaped << "' in " << value;
                current += escaped;
            } else if (character == '`' || character == '$') {
                ADD_FAILURE() << "an unescaped '" << character << "' inside quotes in " << value;
                current += character;
            } else if (character == '"') {
                quoted = false;
            } else if (character == '%') {
                EXPECT_EQ(value.at(++index), '%') << "a field code in " << value;
                current += '%';
            } else {
                current += character;
            }
        } else if (character == '"') {
            quoted = true;
            inArgument = true;
        } else if (character == ' ') {
            if (inArgument) {
                arguments.push_back(current);
            }
            current.clear();
            inArgument = false;
        } else if (character == '%') {
            EXPECT_EQ(value.at(++index), '%') << "a field code in " << value;
            current += '%';
            inArgument = true;
        } else {
            current += character;
            inArgument = true;
        }
    }
    EXPECT_FALSE(quoted) << "unterminated quote in " << value;
    if (inArgument) {
        arguments.push_back(current);
    }
    return arguments;
}

// The property list XML as a tree: just enough of the format to check every element and value.
struct PlistNode {
    std::string tag;
    std::string text;
    std::vector<PlistNode> children;
};

class PlistReader {
public:
    explicit PlistReader(std::string text) : xml(std::move(text)) {}

    PlistNode document() {
        skipProlog();
        PlistNode root = element();
        skipSpace();
        EXPECT_EQ(position, xml.size()) << "content after the root element";
        return root;
    }

private:
    void skipSpace() {
        while (position < xml.size() && std::isspace(static_cast<unsigned char>(xml[position]))) {
            ++position;
        }
    }
    void skipProlog() {
        skipSpace();
        while (xml.compare(position, 2, "<?") == 0 || xml.compare(position, 2, "<!") == 0) {
            position = xml.find('>', position) + 1;
            skipSpace();
        }
    }
    static std::string unescaped(const std::string& text) {
        std::string result;
        for (std::size_t index = 0; index < text.size(); ++index) {
            if (text[index] != '&') {
                result += text[index];
                continue;
            }
            const auto end = text.find(';', index);
            const std::string name = text.substr(index + 1, end - index - 1);
            const std::map<std::string, char> entities{
                {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
            EXPECT_TRUE(entities.contains(name)) << name;
            result += entities.at(name);
            index = end;
        }
        return result;
    }
    PlistNode element() {
        skipSpace();
        EXPECT_EQ(xml.at(position), '<');
        const auto close = xml.find('>', position);
        std::string head = xml.substr(position + 1, close - position - 1);
        position = close + 1;
        PlistNode node;
        const bool empty = !head.empty() && head.back() == '/';
        if (empty) {
            head.pop_back();
        }
        node.tag = head.substr(0, head.find(' '));
        if (empty) {
            return node;
        }
        const std::string end = "</" + node.tag + ">";
        const auto textEnd = xml.find('<', position);
        if (xml.compare(textEnd, end.size(), end) == 0) {
            node.text = unescaped(xml.substr(position, textEnd - position));
            position = textEnd + end.size();
            return node;
        }
        while (true) {
            skipSpace();
            if (xml.compare(position, end.size(), end) == 0) {
                position += end.size();
                return node;
            }
            node.children.push_back(element());
        }
    }

    std::string xml;
    std::size_t position = 0;
};

TEST_F(StartupManagerTest, EntryLivesInTheAutostartFolderOfTheConfigHome) {
    EXPECT_EQ(StartupManager::launchAgentURL(), entry());
    setenv("XDG_CONFIG_HOME", (home / "elsewhere").c_str(), 1);
    EXPECT_EQ(StartupManager::launchAgentURL(), home / "elsewhere" / "autostart" / "com.quillix.companion.desktop");
    setenv("XDG_CONFIG_HOME", "relative/config", 1);
    EXPECT_EQ(StartupManager::launchAgentURL(), entry());
}

TEST_F(StartupManagerTest, LaunchAgentLivesInTheHomeLibrary) {
    EXPECT_EQ(StartupManager::launchAgentPath("/Users/ada"),
              fs::path("/Users/ada/Library/LaunchAgents/com.quillix.companion.plist"));
}

TEST_F(StartupManagerTest, NotEnabledWithoutTheFile) {
    EXPECT_FALSE(StartupManager::isEnabled());
}

TEST_F(StartupManagerTest, EnablingCreatesTheMissingFoldersAndTheEntry) {
    ASSERT_FALSE(fs::exists(home / ".config"));
    EXPECT_FALSE(StartupManager::setEnabled(true));
    EXPECT_TRUE(StartupManager::isEnabled());
    const auto keys = desktopEntryKeys(readFile(entry()));
    EXPECT_EQ(keys.size(), 3u);
    EXPECT_EQ(keys.at("Type"), "Application");
    EXPECT_EQ(keys.at("Name"), "Keyferry");
    const auto executable = StartupManager::runningExecutable();
    ASSERT_TRUE(executable.has_value());
    EXPECT_EQ(execArguments(keys.at("Exec")), (std::vector<std::string>{executable->string(), "--background"}));
}

TEST_F(StartupManagerTest, RunningExecutableIsThisTestProgram) {
    const auto executable = StartupManager::runningExecutable();
    ASSERT_TRUE(executable.has_value());
    EXPECT_TRUE(executable->is_absolute());
    EXPECT_TRUE(fs::equivalent(*executable, "/proc/self/exe"));
}

TEST_F(StartupManagerTest, EnablingTwiceRewritesTheSameFile) {
    ASSERT_FALSE(StartupManager::setEnabled(true));
    const std::string first = readFile(entry());
    EXPECT_FALSE(StartupManager::setEnabled(true));
    EXPECT_EQ(readFile(entry()), first);
}

TEST_F(StartupManagerTest, EnablingReplacesAnyEarlierContent) {
    writeFile(entry(), "[Desktop Entry]\nExec=/old/place/keyferry --background\nHidden=true\n");
    ASSERT_FALSE(StartupManager::setEnabled(true));
    const auto keys = desktopEntryKeys(readFile(entry()));
    EXPECT_FALSE(keys.contains("Hidden"));
    EXPECT_EQ(execArguments(keys.at("Exec")).front(), StartupManager::runningExecutable()->string());
}

TEST_F(StartupManagerTest, DisablingWithoutAFileSucceedsAndChangesNothing) {
    EXPECT_FALSE(StartupManager::setEnabled(false));
    EXPECT_FALSE(fs::exists(home / ".config"));
    EXPECT_FALSE(StartupManager::isEnabled());
}

TEST_F(StartupManagerTest, DisablingRemovesTheEntry) {
    ASSERT_FALSE(StartupManager::setEnabled(true));
    EXPECT_FALSE(StartupManager::setEnabled(false));
    EXPECT_FALSE(fs::exists(entry()));
    EXPECT_FALSE(StartupManager::isEnabled());
}

TEST_F(StartupManagerTest, AnyFileUnderTheNameCountsAsEnabled) {
    writeFile(entry(), "not a desktop entry at all");
    EXPECT_TRUE(StartupManager::isEnabled());
}

TEST_F(StartupManagerTest, UnknownExecutableWritesNothing) {
    const fs::path file = home / "autostart" / "com.quillix.companion.desktop";
    EXPECT_EQ(StartupManager::writeRegistration(std::nullopt, file), StartupError::missingExecutable);
    EXPECT_FALSE(fs::exists(file.parent_path()));
}

TEST_F(StartupManagerTest, MissingExecutableIsItsOwnError) {
    const std::error_code error = StartupError::missingExecutable;
    EXPECT_EQ(error.category(), startupErrorCategory());
    EXPECT_NE(error, std::make_error_code(std::errc::no_such_file_or_directory));
}

TEST_F(StartupManagerTest, FolderThatCannotBeCreatedFailsWithoutWriting) {
    writeFile(home / ".config" / "autostart", "a file where the folder should be");
    const std::error_code error = StartupManager::setEnabled(true);
    EXPECT_TRUE(error);
    EXPECT_FALSE(StartupManager::isEnabled());
}

TEST_F(StartupManagerTest, FailedWriteLeavesTheEarlierFileWhole) {
    const std::string earlier = "[Desktop Entry]\nType=Application\nName=Keyferry\nExec=/old/keyferry --background\n";
    writeFile(entry(), earlier);
    // Occupy the temporary file's name so that the new content cannot be written.
    fs::path blocker = entry();
    blocker += ".tmp-" + std::to_string(getpid());
    fs::create_directories(blocker / "inside");
    EXPECT_TRUE(StartupManager::setEnabled(true));
    EXPECT_EQ(readFile(entry()), earlier);
}

TEST_F(StartupManagerTest, FileThatCannotBeRemovedStaysEnabled) {
    fs::create_directories(entry() / "inside");
    EXPECT_TRUE(StartupManager::setEnabled(false));
    EXPECT_TRUE(StartupManager::isEnabled());
}

TEST_F(StartupManagerTest, MovedExecutableIsNamedAfresh) {
    const fs::path file = entry();
    ASSERT_FALSE(StartupManager::writeRegistration(fs::path("/opt/old/keyferry"), file));
    ASSERT_FALSE(StartupManager::writeRegistration(fs::path("/opt/new/keyferry"), file));
    EXPECT_EQ(execArguments(desktopEntryKeys(readFile(file)).at("Exec")),
              (std::vector<std::string>{"/opt/new/keyferry", "--background"}));
}

TEST_F(StartupManagerTest, ExecQuotesEveryReservedCharacter) {
    const std::string awkward = "/home/a b/it's \"quoted\"/$HOME/`x`/back\\slash/100%/tab\there/keyferry";
    const auto keys = desktopEntryKeys(StartupManager::autostartDesktopEntry(awkward));
    EXPECT_EQ(execArguments(keys.at("Exec")), (std::vector<std::string>{awkward, "--background"}));
}

TEST_F(StartupManagerTest, ExecOfAPlainPath) {
    EXPECT_EQ(StartupManager::autostartDesktopEntry("/usr/bin/keyferry"),
              "[Desktop Entry]\nType=Application\nName=Keyferry\nExec=\"/usr/bin/keyferry\" --background\n");
}

// Parses `xml` and checks it is the launch agent for `executable`: exactly the four entries.
void expectLaunchAgent(const std::string& xml, const std::string& executable) {
    EXPECT_EQ(xml.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n", 0), 0u);
    EXPECT_NE(xml.find("<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\""), std::string::npos);

    const PlistNode root = PlistReader(xml).document();
    EXPECT_EQ(root.tag, "plist");
    ASSERT_EQ(root.children.size(), 1u);
    const PlistNode& dict = root.children.front();
    EXPECT_EQ(dict.tag, "dict");
    ASSERT_EQ(dict.children.size(), 8u);

    std::map<std::string, PlistNode> entries;
    for (std::size_t index = 0; index < dict.children.size(); index += 2) {
        ASSERT_EQ(dict.children[index].tag, "key");
        entries[dict.children[index].text] = dict.children[index + 1];
    }
    ASSERT_EQ(entries.size(), 4u);
    EXPECT_EQ(entries.at("Label").tag, "string");
    EXPECT_EQ(entries.at("Label").text, "com.quillix.companion");
    EXPECT_EQ(entries.at("RunAtLoad").tag, "true");
    EXPECT_EQ(entries.at("ProcessType").tag, "string");
    EXPECT_EQ(entries.at("ProcessType").text, "Interactive");
    const PlistNode& arguments = entries.at("ProgramArguments");
    EXPECT_EQ(arguments.tag, "array");
    ASSERT_EQ(arguments.children.size(), 2u);
    EXPECT_EQ(arguments.children[0].tag, "string");
    EXPECT_EQ(arguments.children[0].text, executable);
    EXPECT_EQ(arguments.children[1].tag, "string");
    EXPECT_EQ(arguments.children[1].text, "--background");
}

TEST_F(StartupManagerTest, PropertyListHoldsExactlyTheFourEntries) {
    const std::string executable = "/Applications/Keyferry & Co <beta>.app/Contents/MacOS/Keyferry";
    expectLaunchAgent(StartupManager::launchAgentPropertyList(executable), executable);
}

TEST_F(StartupManagerTest, LaunchAgentFileIsWrittenAsAPropertyList) {
    const fs::path file = StartupManager::launchAgentPath(home);
    ASSERT_FALSE(fs::exists(home / "Library"));
    ASSERT_FALSE(
        StartupManager::writeRegistration(fs::path("/Applications/Keyferry.app/Contents/MacOS/Keyferry"), file));
    expectLaunchAgent(readFile(file), "/Applications/Keyferry.app/Contents/MacOS/Keyferry");
    ASSERT_FALSE(StartupManager::writeRegistration(fs::path("/Users/ada/Keyferry.app/Contents/MacOS/Keyferry"), file));
    expectLaunchAgent(readFile(file), "/Users/ada/Keyferry.app/Contents/MacOS/Keyferry");
}

} // namespace
} // namespace keyferry
