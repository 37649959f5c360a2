// keyferry-type: types the UTF-8 text read from standard input into the focused X window, through the same
// path as Keyferry itself (TextInjector over the XTest poster). Exits 0 when every chunk was posted.
#include "TextInjector.h"
#include "X11AccessibilityProbe.h"
#include "XTestKeyboardPoster.h"

#include <iostream>
#include <iterator>
#include <string>

int main(int argc, char**) {
    if (argc != 1) {
        std::cerr << "usage: keyferry-type < text\n"
                     "Types the UTF-8 text from standard input into the focused window.\n";
        return 2;
    }
    std::string text(std::istreambuf_iterator<char>(std::cin), {});
    if (std::cin.bad()) {
        std::cerr << "keyferry-type: could not read standard input\n";
        return 1;
    }
    keyferry::X11AccessibilityProbe probe;
    if (!text.empty() && !probe.isTrusted(false)) {
        std::cerr << "keyferry-type: typing is not possible here: no X display with the XTEST extension"
                     " (is DISPLAY set?)\n";
        return 1;
    }
    keyferry::XTestKeyboardPoster poster;
    keyferry::TextInjector injector(poster, probe);
    if (!injector.insert(text)) {
        std::cerr << "keyferry-type: the X server refused a key event; part of the text may be typed\n";
        return 1;
    }
    return 0;
}
