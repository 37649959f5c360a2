# The one platform switch. Every per-platform choice of the build follows the folder name it gives:
# "macos" on Apple systems, "linux" on the others. Sources that only one platform builds live in a folder of
# that name (src/core/<platform>, src/app/<platform>, src/platform/<platform>); everything else is shared
# by both and holds no platform condition.

# Sets `out` to the platform folder name for the CMake system name `system` ("Darwin", "Linux", ...).
function(keyferry_platform_of system out)
    if(system STREQUAL "Darwin")
        set(${out} macos PARENT_SCOPE)
    else()
        set(${out} linux PARENT_SCOPE)
    endif()
endfunction()

# Sets `out` to the sources and headers (.cpp, .mm, .h) of `folder`/`platform`, sorted; empty when the
# folder does not exist.
function(keyferry_platform_sources folder platform out)
    set(patterns ${folder}/${platform}/*.cpp ${folder}/${platform}/*.mm ${folder}/${platform}/*.h)
    if(CMAKE_SCRIPT_MODE_FILE)
        file(GLOB sources LIST_DIRECTORIES false ${patterns})
    else()
        # A source added to the folder later is picked up by the next build.
        file(GLOB sources LIST_DIRECTORIES false CONFIGURE_DEPENDS ${patterns})
    endif()
    list(SORT sources)
    set(${out} ${sources} PARENT_SCOPE)
endfunction()

# Stops the configuration when one of `targets` compiles a source from another platform's folder: the guard
# that keeps each platform's build to its own adapters, whatever a CMakeLists lists.
function(keyferry_check_platform_sources platform)
    foreach(target IN LISTS ARGN)
        get_target_property(sources ${target} SOURCES)
        get_target_property(folder ${target} SOURCE_DIR)
        foreach(source IN LISTS sources)
            cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${folder})
            cmake_path(RELATIVE_PATH source BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
            if(source MATCHES "^src/(core|app|platform)/(macos|linux)/" AND NOT CMAKE_MATCH_2 STREQUAL platform)
                message(FATAL_ERROR "${target} compiles ${source}, which belongs to the ${CMAKE_MATCH_2} build")
            endif()
        endforeach()
    endforeach()
endfunction()
