# Benchmarks of keyferry-service. Built on request (`cmake --build build --target keyferry-bench-connections`),
# run by hand or by scripts/bench; never registered as tests.
add_executable(keyferry-bench-connections EXCLUDE_FROM_ALL
               ${CMAKE_CURRENT_LIST_DIR}/connections/ConnectionsBenchmark.cpp
               ${CMAKE_CURRENT_LIST_DIR}/connections/IdleComputer.cpp)
target_link_libraries(keyferry-bench-connections PRIVATE keyferry_service_testkit)
target_compile_definitions(keyferry-bench-connections PRIVATE KEYFERRY_SERVICE_PROGRAM="$<TARGET_FILE:keyferry-service>")
add_dependencies(keyferry-bench-connections keyferry-service)
keyferry_compile_options(keyferry-bench-connections)

# Phone-to-computer latency: the service alone, and (`bench-latency-app`) the whole way through the application.
add_executable(keyferry-bench-latency EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/latency/LatencyBenchmark.cpp
               ${CMAKE_CURRENT_LIST_DIR}/latency/KeptAliveHttpsClient.cpp)
target_link_libraries(keyferry-bench-latency PRIVATE keyferry_service_testkit)
target_compile_definitions(keyferry-bench-latency PRIVATE KEYFERRY_SERVICE_PROGRAM="$<TARGET_FILE:keyferry-service>")
add_dependencies(keyferry-bench-latency keyferry-service)
keyferry_compile_options(keyferry-bench-latency)
if(TARGET keyferry_e2e_support)
    target_sources(keyferry-bench-latency PRIVATE ${CMAKE_CURRENT_LIST_DIR}/latency/AppendedBytesWatcher.cpp)
    target_link_libraries(keyferry-bench-latency PRIVATE keyferry_e2e_support)
    target_compile_definitions(keyferry-bench-latency PRIVATE KEYFERRY_BENCH_WITH_APP)
    add_custom_target(bench-latency-app
        COMMAND ${PROJECT_SOURCE_DIR}/tests/ui/with-desktop.sh dbus-run-session -- $<TARGET_FILE:keyferry-bench-latency> --app
        DEPENDS keyferry-bench-latency
        USES_TERMINAL)
endif()

# The service's peak memory while one computer with a large backlog opens sockets it never reads.
add_executable(keyferry-bench-backlog EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/backlog/BacklogBenchmark.cpp)
target_link_libraries(keyferry-bench-backlog PRIVATE keyferry_service_testkit)
target_compile_definitions(keyferry-bench-backlog PRIVATE KEYFERRY_SERVICE_PROGRAM="$<TARGET_FILE:keyferry-service>")
add_dependencies(keyferry-bench-backlog keyferry-service)
keyferry_compile_options(keyferry-bench-backlog)

# The application's idle footprint beside a bare Qt tray program with the same network stack.
if(TARGET keyferry_e2e_support)
    find_package(Qt6 6.2 REQUIRED COMPONENTS Widgets Network WebSockets)
    add_executable(keyferry-bench-bare-tray EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/footprint/BareTrayProgram.cpp)
    target_link_libraries(keyferry-bench-bare-tray PRIVATE Qt6::Widgets Qt6::Network Qt6::WebSockets)
    keyferry_compile_options(keyferry-bench-bare-tray)
    add_executable(keyferry-bench-footprint EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/footprint/FootprintBenchmark.cpp
                   ${CMAKE_CURRENT_LIST_DIR}/footprint/ProcessFootprint.cpp)
    target_link_libraries(keyferry-bench-footprint PRIVATE keyferry_e2e_support)
    target_compile_definitions(keyferry-bench-footprint PRIVATE
        KEYFERRY_BARE_TRAY_PROGRAM="$<TARGET_FILE:keyferry-bench-bare-tray>")
    add_dependencies(keyferry-bench-footprint keyferry-bench-bare-tray)
    keyferry_compile_options(keyferry-bench-footprint)
    add_custom_target(bench-footprint
        COMMAND ${PROJECT_SOURCE_DIR}/tests/ui/with-desktop.sh dbus-run-session -- $<TARGET_FILE:keyferry-bench-footprint>
        DEPENDS keyferry-bench-footprint
        USES_TERMINAL)
endif()
