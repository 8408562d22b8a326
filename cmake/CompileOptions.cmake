# Warnings and sanitizers for every target of the project, in one place.
add_library(zelto_compile_options INTERFACE)
target_compile_options(zelto_compile_options INTERFACE -Wall -Wextra -Wpedantic)
# The lane types pass 32-byte vectors by value inside the library only; GCC's note that such
# parameters changed ABI in GCC 4.6 concerns no interface of ours.
target_compile_options(zelto_compile_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-psabi>)
# Calls between the library's own exported functions may be inlined and bound locally: nobody
# is meant to interpose them, and GCC otherwise routes each such call through the PLT.
target_compile_options(zelto_compile_options INTERFACE
  $<$<CXX_COMPILER_ID:GNU>:-fno-semantic-interposition>)
if(ZELTO_WERROR)
  target_compile_options(zelto_compile_options INTERFACE -Werror)
endif()
if(ZELTO_SANITIZE)
  target_compile_options(zelto_compile_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(zelto_compile_options INTERFACE -fsanitize=address,undefined)
endif()
if(ZELTO_TSAN)
  target_compile_options(zelto_compile_options INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  target_link_options(zelto_compile_options INTERFACE -fsanitize=thread)
endif()
if(ZELTO_FUZZ)
  # Coverage for libFuzzer in every object; the fuzz programs add the driver itself.
  target_compile_options(zelto_compile_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
