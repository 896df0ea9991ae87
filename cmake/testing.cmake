# Tests of the project. Their names begin with the preset's, since ./test runs several together.
get_filename_component(CONFKIT_STAGE ${CMAKE_BINARY_DIR} NAME)
set(CONFKIT_TEST_SECONDS 300)

# confkit_test(<target> SOURCES a.cpp... [LIBRARIES lib...] [SERIAL])
# A GoogleTest program; each of its cases is a test of ctest. SERIAL: nothing else runs beside it.
# A test that starts programs of the project puts CONFKIT_EMULATOR (words, often none) before them.
function(confkit_test target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "SERIAL" "" "SOURCES;LIBRARIES")
  add_executable(${target} ${arg_SOURCES})
  target_link_libraries(${target} PRIVATE ${arg_LIBRARIES} GTest::gtest GTest::gtest_main)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
  # Building a test takes longer than running it.
  target_compile_options(${target} PRIVATE -O1)
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
  target_compile_definitions(${target} PRIVATE CONFKIT_EMULATOR="${emulator}")
  set(properties TIMEOUT ${CONFKIT_TEST_SECONDS})
  if(arg_SERIAL)
    list(APPEND properties RUN_SERIAL ON)
  endif()
  gtest_discover_tests(${target} TEST_PREFIX ${CONFKIT_STAGE}. DISCOVERY_TIMEOUT 60
                       PROPERTIES ${properties})
endfunction()

# confkit_script_test(<name> <script> <argument>...): a test that is a shell script. An argument stays one
# argument, also when it is empty or a list, as CMAKE_CROSSCOMPILING_EMULATOR may be.
function(confkit_script_test name script)
  set(command "")
  set(ARGV1 ${PROJECT_SOURCE_DIR}/${script})
  math(EXPR last "${ARGC} - 1")
  foreach(k RANGE 1 ${last})
    string(APPEND command " [==[${ARGV${k}}]==]")
  endforeach()
  cmake_language(EVAL CODE "add_test(NAME ${CONFKIT_STAGE}.${name} COMMAND${command})")
  set_tests_properties(${CONFKIT_STAGE}.${name} PROPERTIES TIMEOUT ${CONFKIT_TEST_SECONDS})
endfunction()
