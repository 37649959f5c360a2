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
