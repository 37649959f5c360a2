# Keyferry.app: the executable "keyferry" becomes the bundle's Contents/MacOS/Keyferry, with the Info.plist
# from resources/Info.plist.in, and in Contents/Resources the icon PNG the application loads
# ("keyferry-app-icon.png") and the Finder's icon (Keyferry.icns, made at build time with iconutil from the
# same SVG at every size an iconset holds).
set(bundle_info_plist ${CMAKE_CURRENT_BINARY_DIR}/Info.plist)
keyferry_configure_info_plist(${bundle_info_plist})

set(iconset ${CMAKE_CURRENT_BINARY_DIR}/Keyferry.iconset)
set(icns ${CMAKE_CURRENT_BINARY_DIR}/${KEYFERRY_BUNDLE_ICON_FILE})
set(render_commands COMMAND ${CMAKE_COMMAND} -E make_directory ${iconset})
foreach(points 16 32 128 256 512)
    math(EXPR double "${points} * 2")
    list(APPEND render_commands
         COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen $<TARGET_FILE:keyferry_icon_renderer>
                 ${app_icon_svg} ${iconset}/icon_${points}x${points}.png ${points}
         COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen $<TARGET_FILE:keyferry_icon_renderer>
                 ${app_icon_svg} ${iconset}/icon_${points}x${points}@2x.png ${double})
endforeach()
add_custom_command(
    OUTPUT ${icns}
    ${render_commands}
    COMMAND iconutil --convert icns --output ${icns} ${iconset}
    DEPENDS keyferry_icon_renderer ${app_icon_svg}
    COMMENT "Making the Finder icon of Keyferry.app"
    VERBATIM)

set_source_files_properties(${icns} ${app_icon_png} PROPERTIES GENERATED TRUE MACOSX_PACKAGE_LOCATION Resources)
target_sources(keyferry PRIVATE ${icns} ${app_icon_png})
set_target_properties(keyferry PROPERTIES
    OUTPUT_NAME ${KEYFERRY_BUNDLE_EXECUTABLE}
    MACOSX_BUNDLE TRUE
    MACOSX_BUNDLE_INFO_PLIST ${bundle_info_plist})
add_dependencies(keyferry keyferry_app_icon)
