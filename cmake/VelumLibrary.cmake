# One static library per subsystem. Sources are picked up from the folder, so
# a new file needs no edit here; what a library may link is stated once, in
# src/CMakeLists.txt, and that list is the dependency order of the layers.
# A layer with no code yet is an interface library that passes its links on.
function(velum_library name)
  cmake_parse_arguments(ARG "" "" "LINKS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS
       ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp
       ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.h)
  list(FILTER sources INCLUDE REGEX "\\.cpp$")
  if(sources)
    file(GLOB_RECURSE headers CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.h)
    add_library(velum_${name} STATIC ${sources} ${headers})
    target_include_directories(velum_${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(velum_${name} PUBLIC ${ARG_LINKS})
  else()
    add_library(velum_${name} INTERFACE)
    target_include_directories(velum_${name} INTERFACE ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(velum_${name} INTERFACE ${ARG_LINKS})
  endif()
endfunction()

# A test executable for each folder under tests/: every *.cpp in it.
function(velum_test_folder name)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(test_${name} ${sources})
  target_link_libraries(test_${name} PRIVATE ${ARGN} velum_testsupport GTest::gtest GTest::gtest_main)
  gtest_discover_tests(test_${name} DISCOVERY_TIMEOUT 60
                       PROPERTIES ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
endfunction()
