# The warnings every Keyferry source is compiled with, as errors, on gcc and clang alike. The build takes
# them from here (KeyferryTargets.cmake), and so does scripts/check-macos, which runs this file as a script
# to print them on one line.
set(KEYFERRY_WARNING_FLAGS -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-align
                           -Woverloaded-virtual -Werror)

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
    list(JOIN KEYFERRY_WARNING_FLAGS " " flags)
    execute_process(COMMAND ${CMAKE_COMMAND} -E echo "${flags}")
endif()
