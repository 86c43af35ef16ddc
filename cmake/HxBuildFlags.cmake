# Every target of this project links hx_flags (PRIVATE): one place for warnings, floating point and sanitizers.
find_package(Threads REQUIRED)

add_library(hx_flags INTERFACE)
target_compile_options(hx_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Wundef
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast>
  $<$<BOOL:${HX_WERROR}>:-Werror>
  # aarch64 compilers fuse a*b+c on their own; results must not depend on the machine.
  -ffp-contract=off)
target_link_libraries(hx_flags INTERFACE Threads::Threads)

if(HX_SANITIZE)
  target_compile_options(hx_flags INTERFACE
    -fsanitize=${HX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(hx_flags INTERFACE -fsanitize=${HX_SANITIZE})
endif()
