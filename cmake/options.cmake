# What holds for every target of the project: language, visibility, warnings, sanitizers, ccache.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
# An installed program finds the library that was installed with it.
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib")
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                    -Wnon-virtual-dtor -Woverloaded-virtual -Werror
                    # g++ 12 reports it wrongly for "text" + std::string.
                    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
                    # Nobody replaces functions of the library: let it inline and call its own.
                    $<$<CXX_COMPILER_ID:GNU>:-fno-semantic-interposition>)

option(CONFKIT_SANITIZE "Build with the address and undefined behaviour sanitizers" OFF)
if(CONFKIT_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
if(CONFKIT_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
