# Tests of the Qt adapters against real peers: a TLS HTTP + WebSocket server on 127.0.0.1 whose certificates
# are made at test time with openssl.
find_package(Qt6 6.4 REQUIRED COMPONENTS Core Network WebSockets Test)
find_program(KEYFERRY_OPENSSL openssl REQUIRED)

# The reusable test peer (also used by the end-to-end tests of the whole service).
add_library(keyferry_tls_test_server STATIC
    ${CMAKE_CURRENT_LIST_DIR}/TestCertificates.cpp
    ${CMAKE_CURRENT_LIST_DIR}/TestWebSocketPeer.cpp
    ${CMAKE_CURRENT_LIST_DIR}/TlsTestConnection.cpp
    ${CMAKE_CURRENT_LIST_DIR}/TlsTestServer.cpp)
target_include_directories(keyferry_tls_test_server PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(keyferry_tls_test_server PUBLIC keyferry_test_support Qt6::Core Qt6::Network)
target_compile_definitions(keyferry_tls_test_server
    PUBLIC QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII QT_NO_URL_CAST_FROM_STRING
    PRIVATE KEYFERRY_OPENSSL="${KEYFERRY_OPENSSL}")
keyferry_compile_options(keyferry_tls_test_server)

keyferry_test(keyferry_qt_adapter_tests integration
    SOURCES
        ${CMAKE_CURRENT_LIST_DIR}/QtTestMain.cpp
        ${CMAKE_CURRENT_LIST_DIR}/QtSerialQueueTest.cpp
        ${CMAKE_CURRENT_LIST_DIR}/QtMainThreadTest.cpp
        ${CMAKE_CURRENT_LIST_DIR}/QtHttpClientTest.cpp
        ${CMAKE_CURRENT_LIST_DIR}/QtWebSocketTaskTest.cpp
        ${CMAKE_CURRENT_LIST_DIR}/QtSettingsDefaultsTest.cpp
        ${CMAKE_CURRENT_LIST_DIR}/QtTrustTest.cpp
    LIBRARIES keyferry_qt keyferry_tls_test_server keyferry_test_support Qt6::Test)

# The whole CompanionService over the Qt adapters; the fakes stand in for secrets, keyboard and permission.
keyferry_test(keyferry_qt_service_tests integration
    SOURCES
        ${CMAKE_CURRENT_LIST_DIR}/QtTestMain.cpp
        ${CMAKE_CURRENT_LIST_DIR}/QtCompanionServiceTest.cpp
    LIBRARIES keyferry_qt keyferry_tls_test_server keyferry_fakes keyferry_test_support Qt6::Test
    TIMEOUT 180)
