# Read by cpack before it packages: the programs must report the version the package carries,
# which a developer build ("dev") does not. `./dev package` configures a release build.
if(NOT CPACK_SAYVO_PROGRAM_VERSION STREQUAL CPACK_PACKAGE_VERSION)
  message(FATAL_ERROR "This build's programs report version \"${CPACK_SAYVO_PROGRAM_VERSION}\", "
    "the package would be ${CPACK_PACKAGE_VERSION}: configure with "
    "-DSAYVO_VERSION=${CPACK_PACKAGE_VERSION} (./dev package does).")
endif()
