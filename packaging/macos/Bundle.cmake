# Veltrane.app: a menu-bar-only bundle with the logo among its resources. `cmake --install` then
# makes it whole (finish-bundle.sh): Qt deployed inside, the minimum macOS its binaries need, an ad
# hoc signature, so it runs on the machine it was built on and a notification centre may accept it
# (a release would sign it with a Developer ID instead), and a check that fails on any finding.
set(logo ${PROJECT_SOURCE_DIR}/Resources/veltrane-logo.png)

# The app's icon, drawn from the logo with the system's own tools: notification banners and System
# Settings show it. The logo is 256 pixels, so the set stops there (256 at 1x, 128 at 2x).
set(iconset ${CMAKE_CURRENT_BINARY_DIR}/Veltrane.iconset)
set(icns ${CMAKE_CURRENT_BINARY_DIR}/Veltrane.icns)
set(icon_commands COMMAND ${CMAKE_COMMAND} -E make_directory ${iconset})
foreach(side 16 32 128 256)
    math(EXPR double "${side} * 2")
    list(APPEND icon_commands COMMAND sips -z ${side} ${side} ${logo} --out ${iconset}/icon_${side}x${side}.png)
    if(double LESS_EQUAL 256)
        list(APPEND icon_commands
            COMMAND sips -z ${double} ${double} ${logo} --out ${iconset}/icon_${side}x${side}@2x.png)
    endif()
endforeach()
add_custom_command(OUTPUT ${icns} ${icon_commands} COMMAND iconutil -c icns ${iconset} -o ${icns}
    DEPENDS ${logo} VERBATIM)

target_sources(veltrane-tray PRIVATE ${logo} ${icns})
set_source_files_properties(${logo} ${icns} PROPERTIES MACOSX_PACKAGE_LOCATION Resources)
set_target_properties(veltrane-tray PROPERTIES
    OUTPUT_NAME Veltrane
    MACOSX_BUNDLE TRUE
    MACOSX_BUNDLE_INFO_PLIST ${CMAKE_CURRENT_LIST_DIR}/Info.plist
    MACOSX_BUNDLE_GUI_IDENTIFIER net.veltrane.tray
    MACOSX_BUNDLE_BUNDLE_NAME Veltrane
    MACOSX_BUNDLE_SHORT_VERSION_STRING ${PROJECT_VERSION}
    MACOSX_BUNDLE_BUNDLE_VERSION ${PROJECT_VERSION})

find_program(MACDEPLOYQT macdeployqt HINTS ${QT6_INSTALL_PREFIX}/${QT6_INSTALL_BINS} REQUIRED)
install(CODE "
    execute_process(COMMAND \"${CMAKE_CURRENT_LIST_DIR}/finish-bundle.sh\"
        \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/Veltrane.app\" \"${MACDEPLOYQT}\" COMMAND_ERROR_IS_FATAL ANY)
" COMPONENT tray)
