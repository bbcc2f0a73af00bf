# The engine: the sources of its folders, built twice.
#
#   engine_hosted         the build's own flags (sanitizers, debugging); unit tests link it
#   engine_freestanding   kernel code-generation flags, joined into one relocatable object,
#                         ${SORVANIC_ENGINE_OBJECT}: what a kernel loads and `sorvanic` links
#
# `engine` is whichever of the two SORVANIC_ENGINE names.

set(SORVANIC_ENGINE_OBJECT ${CMAKE_BINARY_DIR}/sorvanic_engine.o)

# A folder's sources, named in its CMakeLists.txt.
function(sorvanic_engine_sources)
  list(TRANSFORM ARGN PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  set_property(GLOBAL APPEND PROPERTY SORVANIC_ENGINE_SOURCES ${ARGN})
endfunction()

# One variable for all of them: the tools do not notice when -mno-red-zone is left out, but a
# kernel's interrupts do.
set(SORVANIC_KERNEL_FLAGS
  -O2 -ffreestanding -fPIE -fno-exceptions -fno-rtti -fno-threadsafe-statics
  -mno-red-zone -mno-sse -mno-mmx -mno-sse2
  -fcf-protection=none -fno-stack-protector -fno-asynchronous-unwind-tables
  -fno-strict-aliasing -fno-strict-overflow -fno-delete-null-pointer-checks -fno-jump-tables
  -fvisibility=hidden -include ${CMAKE_SOURCE_DIR}/platform/kernel/hidden.h -Wframe-larger-than=2048)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Without x87, clang refuses the long double that <atomic> brings along.
  list(APPEND SORVANIC_KERNEL_FLAGS
    -mno-80387
    -mindirect-branch=thunk-extern -mindirect-branch-register -mindirect-branch-cs-prefix
    -mfunction-return=thunk-extern -mharden-sls=all)
endif()

function(sorvanic_build_engine)
  get_property(sources GLOBAL PROPERTY SORVANIC_ENGINE_SOURCES)

  # Each is built when something links it.
  add_library(engine_hosted OBJECT EXCLUDE_FROM_ALL ${sources})
  add_library(engine_freestanding OBJECT EXCLUDE_FROM_ALL ${sources})
  # Each source has a table and a line type of the same name.
  set_target_properties(engine_hosted engine_freestanding PROPERTIES UNITY_BUILD OFF)
  # After the build type's own -O and -g, so that these win; no sanitizer reaches this object.
  target_compile_options(engine_freestanding PRIVATE ${SORVANIC_KERNEL_FLAGS})
  if(SORVANIC_SANITIZE)
    target_compile_options(engine_freestanding PRIVATE -fno-sanitize=all)
  endif()
  add_custom_command(
    OUTPUT ${SORVANIC_ENGINE_OBJECT}
    COMMAND ${CMAKE_LINKER} -r -o ${SORVANIC_ENGINE_OBJECT} $<TARGET_OBJECTS:engine_freestanding>
    DEPENDS engine_freestanding $<TARGET_OBJECTS:engine_freestanding>
    COMMAND_EXPAND_LISTS VERBATIM)
  add_custom_target(engine_object DEPENDS ${SORVANIC_ENGINE_OBJECT})
  add_custom_target(kernel-module
    COMMAND ${CMAKE_SOURCE_DIR}/tools/kernel-module ${SORVANIC_ENGINE_OBJECT} ${CMAKE_BINARY_DIR}/kernel-module
    DEPENDS ${SORVANIC_ENGINE_OBJECT}
    USES_TERMINAL VERBATIM)

  add_library(engine INTERFACE)
  if(SORVANIC_ENGINE STREQUAL "hosted")
    target_sources(engine INTERFACE $<TARGET_OBJECTS:engine_hosted>)
  else()
    target_link_options(engine INTERFACE ${SORVANIC_ENGINE_OBJECT})
    # As a link option the object is only text: without this, programs keep a stale one.
    set_property(TARGET engine PROPERTY INTERFACE_LINK_DEPENDS ${SORVANIC_ENGINE_OBJECT})
    add_dependencies(engine engine_object)
  endif()
endfunction()
