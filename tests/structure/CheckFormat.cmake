# Fails when a C++ source of the project differs from what clang-format makes
# of it under the checked-in .clang-format. Run by CTest with -DSOURCE_DIR and
# -DCLANG_FORMAT.
file(GLOB_RECURSE sources
  ${SOURCE_DIR}/kordll/*.h ${SOURCE_DIR}/kordll/*.cpp
  ${SOURCE_DIR}/tests/*.h ${SOURCE_DIR}/tests/*.cpp
  ${SOURCE_DIR}/tools/*.h ${SOURCE_DIR}/tools/*.cpp
  ${SOURCE_DIR}/bench/*.h ${SOURCE_DIR}/bench/*.cpp
  ${SOURCE_DIR}/fuzz/*.h ${SOURCE_DIR}/fuzz/*.cpp
  ${SOURCE_DIR}/examples/*.h ${SOURCE_DIR}/examples/*.cpp)
list(FILTER sources EXCLUDE REGEX "/corpus/")
execute_process(COMMAND ${CLANG_FORMAT} --dry-run --Werror ${sources}
  WORKING_DIRECTORY ${SOURCE_DIR} RESULT_VARIABLE rc ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "Files not formatted (run clang-format -i on them):\n${err}")
endif()
