# Checks how the build picks its per-platform sources (cmake/KeyferryPlatform.cmake):
#   - Darwin builds the "macos" folders, Linux the "linux" folders;
#   - each platform's folders (src/core/<platform>, src/app/<platform>, src/platform/<platform>) hold sources,
#     and none of them includes a header of the other platform's adapters or the other platform's system
#     headers (Apple frameworks; X11, XTest, libsecret, GLib, D-Bus, Wayland); Objective-C++ only on macOS;
#   - the sources both platforms build (src/core, src/app, src/platform/qt) hold no platform condition.
# Run as: cmake -DROOT=<source folder> -P PlatformSourcesTest.cmake
include(${ROOT}/cmake/KeyferryPlatform.cmake)

set(failures "")
macro(fail text)
    list(APPEND failures "${text}")
endmacro()

keyferry_platform_of(Darwin darwin_platform)
keyferry_platform_of(Linux linux_platform)
if(NOT darwin_platform STREQUAL "macos" OR NOT linux_platform STREQUAL "linux")
    fail("Darwin builds '${darwin_platform}' and Linux builds '${linux_platform}', not macos and linux")
endif()

# Every source one platform builds.
function(platform_sources platform out)
    set(all "")
    foreach(area src/core src/app)
        keyferry_platform_sources(${ROOT}/${area} ${platform} area_sources)
        list(APPEND all ${area_sources})
    endforeach()
    file(GLOB adapters ${ROOT}/src/platform/${platform}/*.cpp ${ROOT}/src/platform/${platform}/*.mm
                       ${ROOT}/src/platform/${platform}/*.h)
    list(APPEND all ${adapters})
    set(${out} ${all} PARENT_SCOPE)
endfunction()

# The names of one platform's adapter headers, as a regular expression alternative.
function(adapter_headers platform out)
    file(GLOB headers RELATIVE ${ROOT}/src/platform/${platform} ${ROOT}/src/platform/${platform}/*.h)
    list(TRANSFORM headers REPLACE "\\." "\\\\.")
    list(TRANSFORM headers PREPEND "|")
    list(JOIN headers "" alternatives)
    set(${out} "${alternatives}" PARENT_SCOPE)
endfunction()

set(apple_system "ApplicationServices/|CoreGraphics/|CoreFoundation/|Carbon/|AppKit/|Cocoa/|Foundation/|Security/|mach-o/")
set(linux_system "X11/|xcb/|libsecret/|glib|gio/|dbus|wayland")
adapter_headers(macos macos_headers)
adapter_headers(linux linux_headers)
set(not_on_macos "${linux_system}${linux_headers}")
set(not_on_linux "${apple_system}${macos_headers}")
set(other_folder_of_macos "/linux/")
set(other_folder_of_linux "/macos/")

foreach(platform macos linux)
    platform_sources(${platform} sources)
    list(LENGTH sources count)
    if(count EQUAL 0)
        fail("${platform} builds no sources of its own")
    endif()
    foreach(source IN LISTS sources)
        file(RELATIVE_PATH relative ${ROOT} ${source})
        string(FIND "${relative}" "${other_folder_of_${platform}}" foreign)
        if(NOT foreign EQUAL -1)
            fail("${platform} builds ${source}")
        endif()
        if(platform STREQUAL "linux" AND source MATCHES "\\.mm$")
            fail("linux builds the Objective-C++ source ${source}")
        endif()
        file(STRINGS ${source} lines REGEX "^[ \t]*#[ \t]*(include|import)[ \t]*[<\"](${not_on_${platform}})")
        if(lines)
            fail("${source} (built on ${platform}) includes: ${lines}")
        endif()
    endforeach()
endforeach()

file(GLOB shared ${ROOT}/src/protocol/*.cpp ${ROOT}/src/protocol/*.h ${ROOT}/src/core/*.cpp ${ROOT}/src/core/*.h ${ROOT}/src/app/*.cpp ${ROOT}/src/app/*.h
                 ${ROOT}/src/platform/qt/*.cpp ${ROOT}/src/platform/qt/*.h)
foreach(source IN LISTS shared)
    file(STRINGS ${source} lines REGEX "__APPLE__|__MACH__|__linux__|Q_OS_(MAC|MACOS|DARWIN|LINUX|UNIX)")
    if(lines)
        fail("${source} is built on both platforms but holds a platform condition: ${lines}")
    endif()
endforeach()

if(failures)
    list(JOIN failures "\n  " report)
    message(FATAL_ERROR "The per-platform source choice is wrong:\n  ${report}")
endif()
list(LENGTH shared shared_count)
platform_sources(macos macos_sources)
platform_sources(linux linux_sources)
list(LENGTH macos_sources macos_count)
list(LENGTH linux_sources linux_count)
message(STATUS "macos builds ${macos_count} sources of its own, linux ${linux_count}; ${shared_count} shared sources "
               "hold no platform condition")
