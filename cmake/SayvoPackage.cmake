# The Debian package, built by `./dev package` (cpack -G DEB over a release configuration):
# the programs, the engine payload and the desktop files of packaging/linux, installed under
# /usr.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME sayvo)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_CONTACT "${SAYVO_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${SAYVO_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "push-to-talk dictation into any application")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION [=[
Sayvo runs in the system tray. Hold the trigger key anywhere on the desktop,
speak, and let go: what you said appears in the text field you were typing in,
with capitals and punctuation.
.
Speech is recognised on this computer by Sayvo's own speech engine, built on
PocketSphinx, which Sayvo sets up for each user on first start. The text is
pasted (the clipboard is put back afterwards) or inserted through the
accessibility interface. Works on X11 desktops, and natively on Wayland
compositors that offer the wlroots protocols (sway, Hyprland, river, labwc,
Wayfire), with PulseAudio or PipeWire.]=])
# Input methods (ibus, fcitx) are in utils: Sayvo is one for the voice.
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Libraries come from dpkg-shlibdeps (Qt, libpulse0, AT-SPI, X11, PocketSphinx, SQLite, ...).
# What it cannot see: the speech model the engine loads, and ps, which the footprint sampler
# runs.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "pocketsphinx-en-us, procps")
# A sound server for libpulse0 to talk to, and the accessibility bus for direct insertion;
# a desktop has both, a bare X session may not.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pipewire-pulse | pulseaudio, at-spi2-core")
# Debian's permissions: 0755 folders, stripped programs, a control archive owned by root.
# lintian has no error or warning for the package; it notes (informational only) that the
# programs keep their .comment section, the compiler's name, which CPack's plain strip leaves
# and dh_strip would remove: harmless, a few hundred bytes.
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# A package is built from a release configuration only (SayvoPackageCheck.cmake, which sees
# only CPACK_ variables).
set(CPACK_PROJECT_CONFIG_FILE "${CMAKE_CURRENT_LIST_DIR}/SayvoPackageCheck.cmake")
set(CPACK_SAYVO_PROGRAM_VERSION "${SAYVO_VERSION}")
include(CPack)
