// Writes the launch agent property list that registers `executable` to open at login into the home folder
// `home`, exactly as Keyferry.app does on macOS, and prints the file's path:
//   keyferry_write_launch_agent <home> <executable>
// Exits non-zero (with the error) when the file could not be written.
#include "StartupManager.h"

#include <iostream>

int main(int argc, char* argv[]) {
    if (argc != 3) {
        std::cerr << "usage: keyferry_write_launch_agent <home> <executable>\n";
        return 2;
    }
    const std::filesystem::path file = keyferry::StartupManager::launchAgentPath(argv[1]);
    if (const std::error_code error =
            keyferry::StartupManager::writeRegistration(std::filesystem::path(argv[2]), file)) {
        std::cerr << "could not write " << file << ": " << error.message() << "\n";
        return 1;
    }
    std::cout << file.string() << "\n";
    return 0;
}
