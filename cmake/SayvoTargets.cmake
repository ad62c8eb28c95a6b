# Helpers shared by every CMakeLists in the tree.

# The project's own code is warning-free; third-party headers come in as SYSTEM includes
# through their imported targets, so their warnings do not count.
function(sayvo_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()

# A library of the project's own code: sayvo_library(name SOURCES ... [PUBLIC_LIBS ...] [PRIVATE_LIBS ...])
function(sayvo_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC_LIBS;PRIVATE_LIBS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  # Includes name their folder from the roots: "desktop/TextInserter.h" (core/), "ui/HUDView.h",
  # "engine/server/EngineSession.h" (the project's top). No folder name stands in both.
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/core ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_PUBLIC_LIBS} PRIVATE ${ARG_PRIVATE_LIBS})
  sayvo_warnings(${name})
endfunction()

# Whether the compiler can build libFuzzer targets (clang only).
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  set(SAYVO_CAN_FUZZ ON)
else()
  set(SAYVO_CAN_FUZZ OFF)
endif()
