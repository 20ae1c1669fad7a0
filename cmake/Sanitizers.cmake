# QUILLET_SANITIZE builds everything with AddressSanitizer and UndefinedBehaviorSanitizer.
# Project targets link quillet_sanitizers so that the flags reach both compile and link steps.
option(QUILLET_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
add_library(quillet_sanitizers INTERFACE)
if(QUILLET_SANITIZE)
  set(_quillet_san_flags -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_compile_options(quillet_sanitizers INTERFACE ${_quillet_san_flags})
  target_link_options(quillet_sanitizers INTERFACE ${_quillet_san_flags})
endif()

# Project-wide flags live on one INTERFACE target so a target opts in with one line.
add_library(quillet_options INTERFACE)
target_link_libraries(quillet_options INTERFACE quillet_warnings quillet_sanitizers)
