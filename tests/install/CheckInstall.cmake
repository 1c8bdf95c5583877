# Installs the built library into a scratch prefix, runs the installed tool
# from there with no loader path set, and builds a small consumer against the
# library twice: once through find_package(kordll), once through pkg-config.
# Run by CTest with -DBUILD_DIR, -DWORK_DIR, -DCXX and -DEXTRA_FLAGS (the
# sanitizer flags of the build, which a consumer of that build must share).

string(REPLACE ";" " " flags "${EXTRA_FLAGS}")
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")
set(src "${WORK_DIR}/consumer")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGN}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")

# The installed tool finds the installed library by itself, wherever the
# prefix lies (the loader is given no path).
set(tool "${prefix}/bin/kordll")
if(NOT EXISTS "${tool}")
  message(FATAL_ERROR "the tool was not installed as ${tool}")
endif()
run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH "${tool}" version)
if(NOT last_output MATCHES "^kordll [0-9]")
  message(FATAL_ERROR "installed tool printed: ${last_output}")
endif()
run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH "${tool}" --help)
if(NOT last_output MATCHES "usage: kordll")
  message(FATAL_ERROR "installed tool --help printed: ${last_output}")
endif()

file(WRITE "${src}/CMakeLists.txt" [=[
cmake_minimum_required(VERSION 3.25)
project(consumer CXX)
set(CMAKE_CXX_STANDARD 20)
find_package(kordll REQUIRED)
add_executable(consumer main.cpp)
target_link_libraries(consumer PRIVATE kordll::kordll)
]=])
file(WRITE "${src}/main.cpp" [=[
#include <iostream>
#include "kordll/kordll.h"
int main() {
  kordll::CString guid = kordll::CString::Formatted(u"R%d_G%d", 7, 42);
  std::cout << "consumer " << guid.ToUtf8() << " " << kordll::GetLibraryVersion() << "\n";
  return guid == u"R7_G42" ? 0 : 1;
}
]=])

# find_package
run(${CMAKE_COMMAND} -S "${src}" -B "${src}/build" "-DCMAKE_PREFIX_PATH=${prefix}"
    "-DCMAKE_CXX_COMPILER=${CXX}" "-DCMAKE_CXX_FLAGS=${flags}")
run(${CMAKE_COMMAND} --build "${src}/build")
file(GLOB_RECURSE libdirs LIST_DIRECTORIES false "${prefix}/lib*/libkordll.so")
list(GET libdirs 0 lib)
get_filename_component(libdir "${lib}" DIRECTORY)
run(${CMAKE_COMMAND} -E env "LD_LIBRARY_PATH=${libdir}" "${src}/build/consumer")
if(NOT last_output MATCHES "consumer R7_G42")
  message(FATAL_ERROR "find_package consumer printed: ${last_output}")
endif()

# pkg-config, from a .pc file that finds its own prefix
find_program(PKG_CONFIG pkg-config REQUIRED)
set(ENV{PKG_CONFIG_PATH} "${libdir}/pkgconfig")
run(${PKG_CONFIG} --cflags --libs kordll)
string(STRIP "${last_output}" pc_flags)
separate_arguments(pc_list UNIX_COMMAND "${pc_flags} ${flags}")
run(${CXX} -std=c++20 "${src}/main.cpp" ${pc_list} -o "${src}/consumer-pc")
run(${CMAKE_COMMAND} -E env "LD_LIBRARY_PATH=${libdir}" "${src}/consumer-pc")
if(NOT last_output MATCHES "consumer R7_G42")
  message(FATAL_ERROR "pkg-config consumer printed: ${last_output}")
endif()
message(STATUS "installed tree served find_package and pkg-config")
