# Sayvo.app: the menu-bar application bundle built on macOS.
#   sayvo_app_bundle(target main.cpp)
# Info.plist comes from app/macos/Info.plist.in (an accessory app: LSUIElement), the icon from
# app/macos/Sayvo.icns, and the engine payload (scripts and the built engine) is copied into
# Contents/Resources/engine-payload after every build, where the runtime locator looks.
function(sayvo_app_bundle target)
  set(icon "${PROJECT_SOURCE_DIR}/app/macos/Sayvo.icns")
  set_source_files_properties(${icon} PROPERTIES MACOSX_PACKAGE_LOCATION Resources)
  add_executable(${target} MACOSX_BUNDLE ${ARGN} ${icon})
  target_link_libraries(${target} PRIVATE sayvo_app)
  sayvo_warnings(${target})
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME Sayvo
    MACOSX_BUNDLE_INFO_PLIST "${PROJECT_SOURCE_DIR}/app/macos/Info.plist.in"
    MACOSX_BUNDLE_BUNDLE_NAME Sayvo
    MACOSX_BUNDLE_GUI_IDENTIFIER ${SAYVO_APP_ID}
    # "dev" in a developer build, which the runtime locator reads as a development version.
    MACOSX_BUNDLE_SHORT_VERSION_STRING "${SAYVO_VERSION}"
    MACOSX_BUNDLE_BUNDLE_VERSION "${PROJECT_VERSION}"
    MACOSX_BUNDLE_ICON_FILE Sayvo.icns)
  # engine/ is configured after app/, so its payload directory is named here, not read.
  add_dependencies(${target} sayvo_engine_payload)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E copy_directory "${PROJECT_BINARY_DIR}/engine/payload"
            "$<TARGET_BUNDLE_CONTENT_DIR:${target}>/Resources/engine-payload"
    COMMENT "Copying the engine payload into Sayvo.app")
  install(TARGETS ${target} BUNDLE DESTINATION .)
endfunction()
