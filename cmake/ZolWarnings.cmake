# Warnings shared by every target: -Wall -Wextra -Werror, and misplaced attributes are errors
# (a patch-entry attribute the compiler ignores would silently drop the no-operation slots).
add_compile_options(-Wall -Wextra -Werror -Werror=attributes)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-Wthread-safety)
endif()
