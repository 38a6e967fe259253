# Installs the build tree into a scratch prefix and builds the consumer program twice:
# once with find_package(cmutil), once with pkg-config. Both must build and run.
set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  message(STATUS "${out}")
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
set(libdir ${prefix}/${LIBDIR})

# The installed program runs from the prefix without any library path set.
if(EXISTS ${prefix}/bin/cmutil)
  run(${prefix}/bin/cmutil version)
endif()

# find_package
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/consumer -B ${WORK_DIR}/cmake-build -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_RPATH=${libdir})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
run(${WORK_DIR}/cmake-build/consumer)

# pkg-config
find_program(PKG_CONFIG pkg-config REQUIRED)
set(ENV{PKG_CONFIG_PATH} ${libdir}/pkgconfig)
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs cmutil OUTPUT_VARIABLE flags RESULT_VARIABLE rc
                OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know cmutil")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
find_program(CXX NAMES c++ g++ clang++ REQUIRED)
run(${CXX} ${SOURCE_DIR}/consumer/main.cpp -o ${WORK_DIR}/consumer-pc ${flags} -Wl,-rpath,${libdir})
run(${WORK_DIR}/consumer-pc)
