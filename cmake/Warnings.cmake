# Warnings are errors everywhere, for both compilers.
add_compile_options(-Wall -Wextra -Wshadow -Wconversion -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-Wthread-safety)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # Falsely raised at -O3 for std::string's operator+ (GCC bug 105651).
  add_compile_options(-Wno-restrict)
endif()
