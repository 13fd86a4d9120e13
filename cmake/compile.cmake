# How every target of the project is compiled.
add_library(tvop_compile INTERFACE)
target_compile_options(tvop_compile INTERFACE -Wall -Wextra -Wpedantic -Wconversion)
if(TVOP_WERROR)
  target_compile_options(tvop_compile INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Calls inside one library need not go through its symbol table.
  target_compile_options(tvop_compile INTERFACE -fno-semantic-interposition)
endif()
if(TVOP_SANITIZE)
  target_compile_options(tvop_compile INTERFACE -fsanitize=${TVOP_SANITIZE} -fno-sanitize-recover=all
                                                -fno-omit-frame-pointer -g)
  target_link_options(tvop_compile INTERFACE -fsanitize=${TVOP_SANITIZE})
endif()
# The processor fetches code in pieces of 32 bytes, and what runs most often is small.
target_compile_options(tvop_compile INTERFACE -falign-functions=32)
# Calls of other libraries are resolved when a library is loaded, not one by one in the middle of its first work.
target_link_options(tvop_compile INTERFACE -Wl,-z,now)
