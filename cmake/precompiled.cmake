# Precompiled headers, for builds in which time counts (CONFKIT_PRECOMPILE). The release build goes without:
# there every source must include what it uses.
option(CONFKIT_PRECOMPILE "Precompile the headers that most sources include" OFF)
if(NOT CONFKIT_PRECOMPILE)
  return()
endif()

set(common_headers <algorithm> <array> <chrono> <cstdint> <filesystem> <fstream> <functional> <iostream> <map>
  <memory> <optional> <set> <sstream> <string> <string_view> <unordered_map> <utility> <vector>)

# The targets of a folder and of those below it.
function(confkit_targets_below folder result)
  get_property(found DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  get_property(folders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(each IN LISTS folders)
    confkit_targets_below(${each} more)
    list(APPEND found ${more})
  endforeach()
  set(${result} ${found} PARENT_SCOPE)
endfunction()

confkit_targets_below(${PROJECT_SOURCE_DIR} targets)
foreach(target IN LISTS targets)
  get_target_property(sources ${target} SOURCES)
  get_target_property(libraries ${target} LINK_LIBRARIES)
  list(LENGTH sources count)
  # For fewer sources it takes longer than it saves.
  if(count LESS 4 OR target MATCHES "^g(test|mock)")
    continue()
  endif()
  set(headers ${common_headers})
  if(libraries MATCHES "GTest::gtest")
    list(APPEND headers <gtest/gtest.h>)
  endif()
  target_precompile_headers(${target} PRIVATE ${headers})
  # Without a time in it the file is the same as that of the last build, and a compiler cache finds what was
  # made with it.
  target_compile_options(${target} PRIVATE "$<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>")
endforeach()
