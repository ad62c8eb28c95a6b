# Which platform folders are compiled. Nothing outside the platform folders and CMake
# asks which platform it is on.
if(APPLE)
  set(SAYVO_PLATFORM_MACOS ON)
  set(SAYVO_PLATFORM_LINUX OFF)
elseif(UNIX)
  set(SAYVO_PLATFORM_MACOS OFF)
  set(SAYVO_PLATFORM_LINUX ON)
else()
  message(FATAL_ERROR "Sayvo builds on Linux and macOS")
endif()
