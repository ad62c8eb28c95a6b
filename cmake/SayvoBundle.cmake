# Sayvo.app: the menu-bar application bundle built on macOS.
#   sayvo_app_bundle(target main.cpp)
# Info.plist comes from app/macos/Info.plist.in (an accessory app: LSUIElement), the icon from
# app/macos/Sayvo.icns. Code goes where code signing looks for it: the application in
# Contents/MacOS, the engine in Contents/Helpers; the engine's scripts are resources, in
# Contents/Resources/engine-payload, where the runtime locator looks, with the speech model in
# its model/ folder: a Mac has no system copy to link. Every build that changes
# the application, the engine or the scripts assembles the bundle again and signs it.

# "-" signs ad hoc, which is enough to run on the machine that built it; a release names its
# "Developer ID Application: ..." certificate (README). Empty leaves the bundle unsigned.
set(SAYVO_CODESIGN_IDENTITY "-" CACHE STRING "Identity Sayvo.app is signed with")
find_program(SAYVO_CODESIGN codesign)

# The two codesign command lines for the bundle at `bundle`, into `helper` and `app`; both
# empty when the bundle stays unsigned. The helper is signed first: a bundle's signature
# covers the code inside it as it stands. Both run with the hardened runtime; only the
# application gets the microphone.
function(sayvo_signing_commands helper app bundle)
  set(helper_command "")
  set(app_command "")
  if(SAYVO_CODESIGN AND NOT SAYVO_CODESIGN_IDENTITY STREQUAL "")
    # A Developer ID signature needs Apple's time stamp; an ad hoc one cannot have it.
    if(SAYVO_CODESIGN_IDENTITY STREQUAL "-")
      set(timestamp --timestamp=none)
    else()
      set(timestamp --timestamp)
    endif()
    set(sign "${SAYVO_CODESIGN}" --force --sign "${SAYVO_CODESIGN_IDENTITY}" --options runtime
      ${timestamp})
    set(macos "${PROJECT_SOURCE_DIR}/app/macos")
    set(helper_command ${sign} --entitlements "${macos}/Engine.entitlements"
      "${bundle}/Contents/Helpers/sayvo-engine")
    set(app_command ${sign} --entitlements "${macos}/Sayvo.entitlements" "${bundle}")
  endif()
  set(${helper} ${helper_command} PARENT_SCOPE)
  set(${app} ${app_command} PARENT_SCOPE)
endfunction()

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

  # engine/ is configured after app/: its program is named by target, its scripts by source.
  set(bundle "$<TARGET_BUNDLE_DIR:${target}>")
  set(scripts_dir "${PROJECT_SOURCE_DIR}/engine/payload/scripts")
  file(GLOB scripts CONFIGURE_DEPENDS "${scripts_dir}/*")
  sayvo_signing_commands(sign_helper sign_app "${bundle}")
  set(sign "")
  if(sign_app)
    set(sign COMMAND ${sign_helper} COMMAND ${sign_app})
  endif()
  set(stamp "${CMAKE_CURRENT_BINARY_DIR}/${target}-bundle.stamp")
  add_custom_command(OUTPUT "${stamp}"
    COMMAND ${CMAKE_COMMAND} -E rm -rf "${bundle}/Contents/Resources/engine-payload"
            "${bundle}/Contents/Helpers"
    COMMAND ${CMAKE_COMMAND} -E copy_directory "${scripts_dir}"
            "${bundle}/Contents/Resources/engine-payload/scripts"
    COMMAND ${CMAKE_COMMAND} -E copy_directory "$<TARGET_PROPERTY:sayvo-engine,SAYVO_MODEL_DIR>"
            "${bundle}/Contents/Resources/engine-payload/model"
    COMMAND ${CMAKE_COMMAND} -E make_directory "${bundle}/Contents/Helpers"
    COMMAND ${CMAKE_COMMAND} -E copy "$<TARGET_FILE:sayvo-engine>"
            "${bundle}/Contents/Helpers/sayvo-engine"
    ${sign}
    COMMAND ${CMAKE_COMMAND} -E touch "${stamp}"
    DEPENDS ${target} sayvo-engine ${scripts}
            "${PROJECT_SOURCE_DIR}/app/macos/Sayvo.entitlements"
            "${PROJECT_SOURCE_DIR}/app/macos/Engine.entitlements"
    COMMENT "Assembling and signing Sayvo.app"
    VERBATIM)
  add_custom_target(${target}_bundle ALL DEPENDS "${stamp}")

  install(TARGETS ${target} BUNDLE DESTINATION .)
  # Installing may rewrite the application's load paths, which breaks its signature: the
  # installed copy is signed again.
  sayvo_signing_commands(sign_helper sign_app "\${bundle}")
  if(sign_app)
    list(JOIN sign_helper "\" \"" sign_helper)
    list(JOIN sign_app "\" \"" sign_app)
    install(CODE "set(bundle \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/Sayvo.app\")
      execute_process(COMMAND \"${sign_helper}\" COMMAND_ERROR_IS_FATAL ANY)
      execute_process(COMMAND \"${sign_app}\" COMMAND_ERROR_IS_FATAL ANY)")
  endif()
endfunction()
