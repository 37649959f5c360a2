# Keyferry.app's Info.plist, made from resources/Info.plist.in: configured for the Apple build, and for the
# Linux test that checks its keys (tests/macos).
set(KEYFERRY_BUNDLE_EXECUTABLE Keyferry)
set(KEYFERRY_BUNDLE_ICON_FILE Keyferry.icns)

# Writes the configured Info.plist to `output`.
function(keyferry_configure_info_plist output)
    set(KEYFERRY_BUNDLE_VERSION ${PROJECT_VERSION})
    configure_file(${PROJECT_SOURCE_DIR}/resources/Info.plist.in ${output} @ONLY)
endfunction()
