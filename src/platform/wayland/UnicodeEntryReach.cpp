#include "UnicodeEntryReach.h"

#include <fstream>
#include <sstream>
#include <string>

namespace keyferry {

namespace {

bool mapsAny(std::string_view libraries, std::initializer_list<std::string_view> names) {
    for (const std::string_view name : names) {
        if (libraries.find(name) != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

// An input-method plugin of Qt: any plugin of its input contexts but the compose one, which only knows
// the compose key's sequences.
bool loadsQtInputMethod(std::string_view libraries) {
    constexpr std::string_view folder = "/platforminputcontexts/";
    for (std::size_t at = libraries.find(folder); at != std::string_view::npos;
         at = libraries.find(folder, at + folder.size())) {
        const std::size_t lineEnd = libraries.find('\n', at);
        const std::string_view plugin = libraries.substr(at + folder.size(), lineEnd - at - folder.size());
        if (plugin.find("compose") == std::string_view::npos) {
            return true;
        }
    }
    return false;
}

} // namespace

std::optional<bool> takesUnicodeEntry(std::string_view loadedLibraries) {
    // Qt first: a Qt program may load GTK for its look (the GTK platform theme) and still read keys as Qt.
    if (mapsAny(loadedLibraries, {"/libQt5Gui.so", "/libQt6Gui.so"})) {
        return loadsQtInputMethod(loadedLibraries);
    }
    if (mapsAny(loadedLibraries, {"/libgtk-3.so", "/libgtk-4.so"})) {
        return true;
    }
    return std::nullopt;
}

std::optional<bool> processTakesUnicodeEntry(pid_t process) {
    std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
    if (!maps) {
        return std::nullopt;
    }
    std::ostringstream libraries;
    libraries << maps.rdbuf();
    return takesUnicodeEntry(libraries.str());
}

} // namespace keyferry
