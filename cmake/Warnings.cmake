# Warnings are errors everywhere, for both compilers.
add_compile_options(-Wall -Wextra -Wshadow -Wconversion -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-Wthread-safety)
endif()
