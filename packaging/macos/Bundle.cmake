# Veltrane.app: a menu-bar-only bundle with the logo among its resources. `cmake --install` then
# deploys Qt inside it (macdeployqt) and signs it ad hoc, so it runs on the machine it was built
# on and a notification centre accepts it; a release would sign it with a Developer ID instead.
set(logo ${PROJECT_SOURCE_DIR}/Resources/veltrane-logo.png)
target_sources(veltrane-tray PRIVATE ${logo})
set_source_files_properties(${logo} PROPERTIES MACOSX_PACKAGE_LOCATION Resources)
set_target_properties(veltrane-tray PROPERTIES
    OUTPUT_NAME Veltrane
    MACOSX_BUNDLE TRUE
    MACOSX_BUNDLE_INFO_PLIST ${CMAKE_CURRENT_LIST_DIR}/Info.plist
    MACOSX_BUNDLE_GUI_IDENTIFIER net.veltrane.tray
    MACOSX_BUNDLE_BUNDLE_NAME Veltrane
    MACOSX_BUNDLE_SHORT_VERSION_STRING ${PROJECT_VERSION}
    MACOSX_BUNDLE_BUNDLE_VERSION ${PROJECT_VERSION})

find_program(MACDEPLOYQT macdeployqt HINTS ${QT6_INSTALL_PREFIX}/${QT6_INSTALL_BINS} REQUIRED)
find_program(CODESIGN codesign REQUIRED)
install(CODE "
    set(app \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/Veltrane.app\")
    execute_process(COMMAND \"${MACDEPLOYQT}\" \"\${app}\" -always-overwrite COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND \"${CODESIGN}\" --force --deep --sign - \"\${app}\" COMMAND_ERROR_IS_FATAL ANY)
" COMPONENT tray)
