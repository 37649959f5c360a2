// keyferry-type: types the UTF-8 text read from standard input into the focused window, through the same
// path as Keyferry itself (TextInjector over the session's typing backend, or the one named with --backend).
// Exits 0 when every chunk was posted.
#include "TextInjector.h"
#include "TypingPorts.h"

#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

namespace {

constexpr std::string_view usage =
    "usage: keyferry-type [--backend=xtest|virtual-keyboard|gnome|kde] < text\n"
    "Types the UTF-8 text from standard input into the focused window, with the typing backend Keyferry\n"
    "picks for this session, or the one named.\n";

// The backend named on the command line; none when there is no argument; false when the arguments are wrong.
std::optional<std::optional<keyferry::TypingBackend>> requestedBackend(int argc, char** argv) {
    if (argc == 1) {
        return std::optional<keyferry::TypingBackend>();
    }
    constexpr std::string_view flag = "--backend=";
    const std::string_view argument = argc == 2 ? argv[1] : "";
    if (!argument.starts_with(flag)) {
        return std::nullopt;
    }
    const auto backend = keyferry::typingBackendNamed(argument.substr(flag.size()));
    if (!backend) {
        return std::nullopt;
    }
    return std::optional<keyferry::TypingBackend>(backend);
}

} // namespace

int main(int argc, char** argv) {
    const auto requested = requestedBackend(argc, argv);
    if (!requested) {
        std::cerr << usage;
        return 2;
    }
    std::string text(std::istreambuf_iterator<char>(std::cin), {});
    if (std::cin.bad()) {
        std::cerr << "keyferry-type: could not read standard input\n";
        return 1;
    }
    keyferry::TypingPorts typing = keyferry::TypingPorts::make(*requested);
    if (!text.empty() && !typing.probe->isTrusted(false)) {
        std::cerr << "keyferry-type: typing is not possible here: " << typing.choice.missing << "\n";
        return 1;
    }
    keyferry::TextInjector injector(*typing.poster, *typing.probe);
    if (!injector.insert(text)) {
        std::cerr << "keyferry-type: the text was refused or a key event failed (backend "
                  << keyferry::typingBackendName(typing.choice.backend) << "); part of it may be typed\n";
        return 1;
    }
    return 0;
}
