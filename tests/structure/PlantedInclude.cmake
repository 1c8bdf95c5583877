# The layer check passes on a copy of the library's tree and fails on the
# same copy once one file includes a header of a higher layer, a header of a
# sideways layer, or the umbrella header. Run by CTest with -DSOURCE_DIR and
# -DWORK_DIR.
set(check ${SOURCE_DIR}/cmake/CheckLayers.cmake)

function(run_check expect_ok what)
  execute_process(COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${WORK_DIR} -P ${check}
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(expect_ok AND NOT rc EQUAL 0)
    message(FATAL_ERROR "layer check refused ${what}:\n${err}")
  elseif(NOT expect_ok AND rc EQUAL 0)
    message(FATAL_ERROR "layer check accepted ${what}")
  endif()
endfunction()

function(plant file line what)
  file(REMOVE_RECURSE ${WORK_DIR})
  file(COPY ${SOURCE_DIR}/kordll DESTINATION ${WORK_DIR})
  file(APPEND ${WORK_DIR}/kordll/${file} "\n${line}\n")
  run_check(FALSE "${what}")
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(COPY ${SOURCE_DIR}/kordll DESTINATION ${WORK_DIR})
run_check(TRUE "the tree as it is")

plant(record/Item.cpp "#include \"kordll/schema/Relation.h\"" "an upward include")
plant(platform/CString.h "#include \"kordll/record/Item.h\"" "an include from the lowest layer")
plant(toolkit/PrintTag.cpp "  #  include <kordll/filter/ContentFilter.h>" "an angled, spaced include")
plant(schema/Relation.cpp "#include \"kordll/kordll.h\"" "the umbrella header")
file(REMOVE_RECURSE ${WORK_DIR})
