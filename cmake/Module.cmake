# The module: the sources of its folders, built twice.
#
#   module_hosted         the build's own flags (sanitizers, debugging); unit tests link it
#   module_freestanding   kernel code-generation flags, joined into one relocatable object,
#                         ${SORVANIC_MODULE_OBJECT}: what a kernel loads and `sorvanic` links
#
# `module` is whichever of the two SORVANIC_MODULE names.

set(SORVANIC_MODULE_OBJECT ${CMAKE_BINARY_DIR}/sorvanic_module.o)

# A folder's sources, named in its CMakeLists.txt.
function(sorvanic_module_sources)
  list(TRANSFORM ARGN PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  set_property(GLOBAL APPEND PROPERTY SORVANIC_MODULE_SOURCES ${ARGN})
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

function(sorvanic_build_module)
  get_property(sources GLOBAL PROPERTY SORVANIC_MODULE_SOURCES)

  # Each is built when something links it.
  add_library(module_hosted OBJECT EXCLUDE_FROM_ALL ${sources})
  add_library(module_freestanding OBJECT EXCLUDE_FROM_ALL ${sources})
  # After the build type's own -O and -g, so that these win; no sanitizer reaches this object.
  target_compile_options(module_freestanding PRIVATE ${SORVANIC_KERNEL_FLAGS})
  if(SORVANIC_SANITIZE)
    target_compile_options(module_freestanding PRIVATE -fno-sanitize=all)
  endif()
  add_custom_command(
    OUTPUT ${SORVANIC_MODULE_OBJECT}
    COMMAND ${CMAKE_LINKER} -r -o ${SORVANIC_MODULE_OBJECT} $<TARGET_OBJECTS:module_freestanding>
    DEPENDS module_freestanding $<TARGET_OBJECTS:module_freestanding>
    COMMAND_EXPAND_LISTS VERBATIM)
  add_custom_target(module_object DEPENDS ${SORVANIC_MODULE_OBJECT})

  add_library(module INTERFACE)
  if(SORVANIC_MODULE STREQUAL "hosted")
    target_sources(module INTERFACE $<TARGET_OBJECTS:module_hosted>)
  else()
    target_link_options(module INTERFACE ${SORVANIC_MODULE_OBJECT})
    # As a link option the object is only text: without this, programs keep a stale one.
    set_property(TARGET module PROPERTY INTERFACE_LINK_DEPENDS ${SORVANIC_MODULE_OBJECT})
    add_dependencies(module module_object)
  endif()
endfunction()
