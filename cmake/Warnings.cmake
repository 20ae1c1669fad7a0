# Every project target links quillet_warnings; third-party code never sees these flags.
add_library(quillet_warnings INTERFACE)
target_compile_options(quillet_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
  -Wcast-align -Woverloaded-virtual -Wimplicit-fallthrough
  $<$<BOOL:${QUILLET_WERROR}>:-Werror>)
option(QUILLET_WERROR "Treat warnings as errors" OFF)
