# Linux adapters against real peers: Xvfb with XTest and two real receiving clients, the Secret Service of
# gnome-keyring inside a private D-Bus session. Every test starts and stops what it needs.
find_package(Qt6 REQUIRED COMPONENTS Widgets)

add_library(keyferry_linux_test_support STATIC
    ${CMAKE_CURRENT_LIST_DIR}/XvfbDisplay.cpp
    ${CMAKE_CURRENT_LIST_DIR}/MixedSampleText.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ReceivedText.cpp
    ${CMAKE_CURRENT_LIST_DIR}/PrivateSessionBus.cpp
    ${CMAKE_CURRENT_LIST_DIR}/KeymapChangeCounter.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ShiftPressCounter.cpp
)
target_include_directories(keyferry_linux_test_support PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(keyferry_linux_test_support PUBLIC keyferry_test_support PRIVATE PkgConfig::KEYFERRY_X11)
keyferry_compile_options(keyferry_linux_test_support)

add_executable(keyferry-xlib-receiver ${CMAKE_CURRENT_LIST_DIR}/XlibTextReceiver.cpp)
target_link_libraries(keyferry-xlib-receiver PRIVATE PkgConfig::KEYFERRY_X11)
keyferry_compile_options(keyferry-xlib-receiver)

add_executable(keyferry-qt-receiver ${CMAKE_CURRENT_LIST_DIR}/QtTextReceiver.cpp)
target_link_libraries(keyferry-qt-receiver PRIVATE Qt6::Widgets)
target_compile_definitions(keyferry-qt-receiver PRIVATE QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII QT_NO_URL_CAST_FROM_STRING)
keyferry_compile_options(keyferry-qt-receiver)

keyferry_test(keyferry_xtest_typing_tests integration
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/XTestTypingTest.cpp ${CMAKE_CURRENT_LIST_DIR}/XTestFirstTextTest.cpp
    LIBRARIES keyferry_linux keyferry_core keyferry_linux_test_support PkgConfig::KEYFERRY_X11
    TIMEOUT 240)
target_compile_definitions(keyferry_xtest_typing_tests PRIVATE
    KEYFERRY_XLIB_RECEIVER="$<TARGET_FILE:keyferry-xlib-receiver>"
    KEYFERRY_QT_RECEIVER="$<TARGET_FILE:keyferry-qt-receiver>"
    KEYFERRY_TYPE_TOOL="$<TARGET_FILE:keyferry-type>")
add_dependencies(keyferry_xtest_typing_tests keyferry-xlib-receiver keyferry-qt-receiver keyferry-type)

# Texts with far more distinct characters than spare keycodes, into fast and slow windows, GTK and xterm among them.
keyferry_test(keyferry_xtest_many_characters_tests integration
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/XTestManyCharactersTest.cpp
    LIBRARIES keyferry_linux keyferry_core keyferry_linux_test_support
    TIMEOUT 180)
target_compile_definitions(keyferry_xtest_many_characters_tests PRIVATE
    KEYFERRY_XLIB_RECEIVER="$<TARGET_FILE:keyferry-xlib-receiver>"
    KEYFERRY_QT_RECEIVER="$<TARGET_FILE:keyferry-qt-receiver>"
    KEYFERRY_XTERM_RECEIVER="${CMAKE_CURRENT_LIST_DIR}/xterm-receiver.sh"
    KEYFERRY_GTK_RECEIVER="${CMAKE_CURRENT_LIST_DIR}/gtk-x11-receiver.sh"
    KEYFERRY_TYPE_TOOL="$<TARGET_FILE:keyferry-type>")
add_dependencies(keyferry_xtest_many_characters_tests keyferry-xlib-receiver keyferry-qt-receiver keyferry-type)

add_executable(keyferry-silent-secret-service ${CMAKE_CURRENT_LIST_DIR}/SilentSecretService.cpp)
target_link_libraries(keyferry-silent-secret-service PRIVATE PkgConfig::KEYFERRY_SECRET)
keyferry_compile_options(keyferry-silent-secret-service)

keyferry_test(keyferry_secret_service_tests integration
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/SecretServiceBackendTest.cpp
    LIBRARIES keyferry_linux keyferry_core keyferry_linux_test_support PkgConfig::KEYFERRY_SECRET
    TIMEOUT 60)
target_compile_definitions(keyferry_secret_service_tests PRIVATE
    KEYFERRY_SILENT_SECRET_SERVICE="$<TARGET_FILE:keyferry-silent-secret-service>")
add_dependencies(keyferry_secret_service_tests keyferry-silent-secret-service)

keyferry_test(keyferry_spare_keycode_pool_tests integration
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/SpareKeycodePoolTest.cpp
    LIBRARIES keyferry_linux)

keyferry_test(keyferry_unix_socket_table_tests integration
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/UnixSocketTableTest.cpp
    LIBRARIES keyferry_linux keyferry_test_support)

keyferry_test(keyferry_x11_client_inbox_tests integration
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/X11ClientInboxTest.cpp
    LIBRARIES keyferry_linux keyferry_linux_test_support PkgConfig::KEYFERRY_X11
    TIMEOUT 60)
target_compile_definitions(keyferry_x11_client_inbox_tests PRIVATE
    KEYFERRY_XLIB_RECEIVER="$<TARGET_FILE:keyferry-xlib-receiver>")
add_dependencies(keyferry_x11_client_inbox_tests keyferry-xlib-receiver)


keyferry_test(keyferry_spare_keycode_writer_tests integration
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/SpareKeycodeWriterTest.cpp
    LIBRARIES keyferry_linux keyferry_linux_test_support PkgConfig::KEYFERRY_X11
    TIMEOUT 60)
