# Benchmarks of keyferry-service. Built on request (`cmake --build build --target keyferry-bench-connections`),
# run by hand or by scripts/bench; never registered as tests.
add_executable(keyferry-bench-connections EXCLUDE_FROM_ALL
               ${CMAKE_CURRENT_LIST_DIR}/connections/ConnectionsBenchmark.cpp
               ${CMAKE_CURRENT_LIST_DIR}/connections/IdleComputer.cpp)
target_link_libraries(keyferry-bench-connections PRIVATE keyferry_service_testkit)
target_compile_definitions(keyferry-bench-connections PRIVATE KEYFERRY_SERVICE_PROGRAM="$<TARGET_FILE:keyferry-service>")
add_dependencies(keyferry-bench-connections keyferry-service)
keyferry_compile_options(keyferry-bench-connections)
