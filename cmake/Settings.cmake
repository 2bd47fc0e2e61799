# One interface target carries the language level, hardening and sanitizers; every target of the project links it.
add_library(CorvaneSettings INTERFACE)
target_compile_features(CorvaneSettings INTERFACE cxx_std_20)
target_include_directories(CorvaneSettings INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_definitions(CorvaneSettings INTERFACE _FILE_OFFSET_BITS=64)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

if(CORVANE_SANITIZER)
  target_compile_options(CorvaneSettings INTERFACE -fsanitize=${CORVANE_SANITIZER} -fno-omit-frame-pointer)
  target_link_options(CorvaneSettings INTERFACE -fsanitize=${CORVANE_SANITIZER})
  if(CORVANE_SANITIZER MATCHES undefined)
    # The check of virtual tables opens a pipe, and takes a process without free descriptors for a broken object.
    target_compile_options(CorvaneSettings INTERFACE -fno-sanitize-recover=all -fno-sanitize=vptr)
  endif()
elseif(CMAKE_BUILD_TYPE STREQUAL Release)
  # The usual hardening, and no place of the source in the programs. libstdc++ is linked statically: it takes a third off
  # the start-up time.
  target_compile_options(CorvaneSettings INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
    -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong -ffunction-sections -fdata-sections)
  include(CheckCXXCompilerFlag)
  foreach(protection stack-clash-protection cf-protection)
    check_cxx_compiler_flag(-f${protection} CORVANE_HAS_${protection})
    if(CORVANE_HAS_${protection})
      target_compile_options(CorvaneSettings INTERFACE -f${protection})
    endif()
  endforeach()
  target_compile_definitions(CorvaneSettings INTERFACE _GLIBCXX_ASSERTIONS)
  if(NOT APPLE)
    target_link_options(CorvaneSettings INTERFACE
      -Wl,-z,relro -Wl,-z,now -Wl,--as-needed -Wl,--gc-sections -Wl,-O1 -static-libstdc++ -static-libgcc)
  endif()
endif()

find_program(CORVANE_CCACHE ccache)
if(CORVANE_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CORVANE_CCACHE})
endif()

# Sources are found by their place: a file in a room belongs to the room's target.
function(corvane_sources result)
  set(found)
  foreach(folder IN LISTS ARGN)
    file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp)
    list(APPEND found ${sources})
  endforeach()
  list(SORT found)
  # What only one system has sits in a file of its own, told by its name.
  if(APPLE)
    list(FILTER found EXCLUDE REGEX "Linux\\.cpp$")
  else()
    list(FILTER found EXCLUDE REGEX "MacOS\\.cpp$")
  endif()
  set(${result} ${found} PARENT_SCOPE)
endfunction()
