# Fails the build when a source of the portable core includes a toolkit or platform header.
# Run as: cmake -DSOURCES="a;b" -DSTAMP=file -P CheckCorePortability.cmake
set(forbidden "^[ \t]*#[ \t]*(include|import)[ \t]*[<\"](Q[A-Za-z]*|Qt[A-Za-z]*/|qt6?/|X11/|xcb/|wayland|ApplicationServices|CoreGraphics|CoreFoundation|Carbon|AppKit|Cocoa|Foundation|Security/|libsecret|glib|gio/|dbus|boost/)")
foreach(source IN LISTS SOURCES)
    file(STRINGS "${source}" lines REGEX "${forbidden}")
    if(lines)
        message(FATAL_ERROR "${source} is part of the portable core and may not include: ${lines}")
    endif()
endforeach()
file(TOUCH "${STAMP}")
