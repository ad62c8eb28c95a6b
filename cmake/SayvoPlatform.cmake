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

# The macOS adapters are Objective-C++ (.mm) with automatic reference counting, built in the
# project's C++ standard.
if(SAYVO_PLATFORM_MACOS)
  enable_language(OBJCXX)
  set(CMAKE_OBJCXX_STANDARD ${CMAKE_CXX_STANDARD})
  set(CMAKE_OBJCXX_STANDARD_REQUIRED ON)
  string(APPEND CMAKE_OBJCXX_FLAGS " -fobjc-arc")
endif()
