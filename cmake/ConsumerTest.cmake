# ctest -P script: installs the build tree into a scratch prefix, runs the
# installed tool from there, then configures, builds and runs tests/consumer
# against it with both the CMake package and pkg-config.
#   -DBUILD_DIR=... -DSOURCE_DIR=... -DWORK_DIR=... [-DGENERATOR=...]
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}")
  endif()
  message(STATUS "${out}")
endfunction()

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")

# The installed tool must start on its own (its run path finds the library):
# no library path from outside, and its installation folder is its own.
unset(ENV{LD_LIBRARY_PATH})
unset(ENV{QIMMISC_INSTALL_DIR})
run("${prefix}/bin/qimmisc" --version)
execute_process(COMMAND "${prefix}/bin/qimmisc" doctor RESULT_VARIABLE rc OUTPUT_VARIABLE out
                ERROR_VARIABLE out)
if(NOT (rc EQUAL 0 OR rc EQUAL 1) OR NOT out MATCHES "\\[ok\\] +installation +${prefix}/bin/")
  message(FATAL_ERROR "installed qimmisc doctor failed (${rc}):\n${out}")
endif()
run(${CMAKE_COMMAND} -S "${SOURCE_DIR}/tests/consumer" -B "${WORK_DIR}/build"
    -G "${GENERATOR}" -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build "${WORK_DIR}/build")
set(ENV{LD_LIBRARY_PATH} "${prefix}/lib:$ENV{LD_LIBRARY_PATH}")
run("${WORK_DIR}/build/consumer")

# The same program through pkg-config.
find_program(PKG_CONFIG pkg-config REQUIRED)
set(ENV{PKG_CONFIG_PATH} "${prefix}/lib/pkgconfig")
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs qimmisc
                OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know qimmisc")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
run(c++ "${SOURCE_DIR}/tests/consumer/main.cpp" -o "${WORK_DIR}/consumer-pc" ${flags} -pthread)
run("${WORK_DIR}/consumer-pc")
