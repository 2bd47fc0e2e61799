add_library(CorvaneWarnings INTERFACE)
target_compile_options(CorvaneWarnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-align -Wnon-virtual-dtor
  -Woverloaded-virtual -Wold-style-cast -Wformat=2 -Wimplicit-fallthrough -Wextra-semi)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  target_compile_options(CorvaneWarnings INTERFACE -Wduplicated-cond -Wlogical-op -Wno-missing-field-initializers)
  if(CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC 12 reports overlaps and uninitialised values in strings and optionals that only its own optimiser, or a
    # sanitizer's code, makes look so.
    target_compile_options(CorvaneWarnings INTERFACE -Wno-restrict -Wno-maybe-uninitialized)
  endif()
else()
  target_compile_options(CorvaneWarnings INTERFACE -Wno-missing-field-initializers -Wno-missing-braces)
endif()
if(CORVANE_WARNINGS_AS_ERRORS)
  target_compile_options(CorvaneWarnings INTERFACE -Werror)
endif()
