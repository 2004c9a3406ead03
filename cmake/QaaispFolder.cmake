# qaaisp_folder(NAME DEPS dep... [LIBS lib...])
#
# One static library per source folder, built from every *.cc in it except
# *_test.cc, and one GoogleTest executable from the *_test.cc files beside it.
# DEPS are other folders (qaaisp_<dep>); LIBS are outside libraries.
function(qaaisp_folder name)
  cmake_parse_arguments(ARG "" "" "DEPS;LIBS;TEST_LIBS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cc)
  file(GLOB tests CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*_test.cc)
  list(REMOVE_ITEM sources ${tests} "")
  set(target qaaisp_${name})
  add_library(${target} STATIC ${sources})
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/include)
  foreach(dep ${ARG_DEPS})
    target_link_libraries(${target} PUBLIC qaaisp_${dep})
  endforeach()
  target_link_libraries(${target} PUBLIC ${ARG_LIBS} Threads::Threads)
  if(QAAISP_TESTS AND tests)
    add_executable(${name}_test ${tests})
    target_link_libraries(${name}_test PRIVATE ${target} qaaisp_testing ${ARG_TEST_LIBS}
                          GTest::gmock GTest::gtest_main)
    gtest_discover_tests(${name}_test DISCOVERY_TIMEOUT 60
                         PROPERTIES ENVIRONMENT "QAAISP_REGISTRY=;QAAISP_EVENT_LOG=")
  endif()
endfunction()
