# Settings that our own targets share. Nothing here reaches a user's target.
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-fno-gnu-unique QVX_HAS_NO_GNU_UNIQUE)
check_cxx_compiler_flag(-fno-semantic-interposition QVX_HAS_NO_SEMANTIC_INTERPOSITION)

set(QVX_WARNINGS
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast -Wcast-align
  -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Wimplicit-fallthrough -Wundef)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # Reports joined std::strings at -O3 (fixed in version 13).
  list(APPEND QVX_WARNINGS -Wno-restrict)
endif()

# Language level, visibility, warnings and sanitizers for one of our targets.
function(qvx_private_settings target)
  target_compile_features(${target} PRIVATE cxx_std_20)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE ${QVX_WARNINGS}
    $<$<BOOL:${QVX_WARNINGS_AS_ERRORS}>:-Werror>
    $<$<BOOL:${QVX_HAS_NO_GNU_UNIQUE}>:-fno-gnu-unique>
    $<$<BOOL:${QVX_HAS_NO_SEMANTIC_INTERPOSITION}>:-fno-semantic-interposition>)
  if(QVX_SANITIZE)
    target_compile_options(${target} PRIVATE
      "-fsanitize=${QVX_SANITIZE}" -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE "-fsanitize=${QVX_SANITIZE}")
  endif()
endfunction()

# qvx_add_test_folder(FOLDER [LIBRARIES ...]): one binary of all *_test.cpp in tests/FOLDER.
# A case named Large.* gets the label "large", which only the plain preset runs.
function(qvx_add_test_folder folder)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LIBRARIES")
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp")
  if(NOT sources)
    return()
  endif()
  set(target "${folder}_test")
  add_executable(${target} ${sources})
  qvx_private_settings(${target})
  # What is tested has the full optimisation; the tests themselves compile in half the time.
  target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O1>)
  target_link_libraries(${target} PRIVATE qvx_objects qvx_test_support ${arg_LIBRARIES})
  gtest_discover_tests(${target} TEST_PREFIX "${folder}."
    DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    TEST_FILTER "-Large*"
    PROPERTIES TIMEOUT 300 LABELS "${folder}")
  if(NOT QVX_SANITIZE)
    gtest_discover_tests(${target} TEST_PREFIX "${folder}." TEST_LIST ${target}_large
      DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
      TEST_FILTER "Large*"
      PROPERTIES TIMEOUT 600 LABELS "${folder};large" RUN_SERIAL ON)
  endif()
endfunction()
