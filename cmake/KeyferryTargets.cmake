include(KeyferryWarnings)

# Compiler settings shared by every Keyferry target: warnings are errors, sanitizers on request.
function(keyferry_compile_options target)
    target_compile_options(${target} PRIVATE ${KEYFERRY_WARNING_FLAGS})
    if(KEYFERRY_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=address,undefined -fno-omit-frame-pointer
                                                 -fno-sanitize-recover=undefined)
        target_link_options(${target} PRIVATE -fsanitize=address,undefined)
    endif()
    if(KEYFERRY_FUZZ)
        # Coverage for libFuzzer's guidance; the fuzz targets add the fuzzer's own main at link time.
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
endfunction()

# A GoogleTest executable registered with ctest under one label.
function(keyferry_test target label)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBRARIES;PROPERTIES" ${ARGN})
    add_executable(${target} ${ARG_SOURCES})
    keyferry_compile_options(${target})
    target_link_libraries(${target} PRIVATE ${ARG_LIBRARIES} GTest::gtest GTest::gmock GTest::gtest_main)
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    gtest_discover_tests(${target} PROPERTIES LABELS ${label} TIMEOUT ${ARG_TIMEOUT} ${ARG_PROPERTIES}
                         DISCOVERY_TIMEOUT 60)
endfunction()

# Fails the build of `target` when one of the given sources includes a toolkit, platform or network library
# header; checked on every build that touches them.
function(keyferry_check_portable target)
    set(stamp ${CMAKE_CURRENT_BINARY_DIR}/${target}-portability.stamp)
    add_custom_command(
        OUTPUT ${stamp}
        COMMAND ${CMAKE_COMMAND} "-DSOURCES=${ARGN}" -DSTAMP=${stamp} -P ${PROJECT_SOURCE_DIR}/cmake/CheckCorePortability.cmake
        DEPENDS ${ARGN} ${PROJECT_SOURCE_DIR}/cmake/CheckCorePortability.cmake
        COMMENT "Checking that ${target} stays portable"
        VERBATIM)
    add_custom_target(${target}_portability DEPENDS ${stamp})
    add_dependencies(${target} ${target}_portability)
endfunction()
