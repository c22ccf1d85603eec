# Installs the build, moves the installed tree elsewhere, and builds and runs the consumer against it through the CMake
# package and through pkg-config.
function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ECHO STDOUT COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --config ${CONFIG} --prefix ${WORK}/installed)
file(RENAME ${WORK}/installed ${WORK}/moved)
set(prefix ${WORK}/moved)
set(source ${CMAKE_CURRENT_LIST_DIR}/consumer)

run(${CMAKE_COMMAND} -S ${source} -B ${WORK}/build -G ${GENERATOR} -D CMAKE_CXX_COMPILER=${CXX}
    -D CMAKE_PREFIX_PATH=${prefix} -D CMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)
run(${CMAKE_COMMAND} --build ${WORK}/build)
run(${WORK}/build/consumer)

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
foreach(what IN ITEMS modversion cflags libs)
    execute_process(COMMAND ${PKG_CONFIG} --${what} kmxf OUTPUT_VARIABLE ${what} OUTPUT_STRIP_TRAILING_WHITESPACE
        COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(${what})
endforeach()
if(NOT modversion STREQUAL VERSION)
    message(FATAL_ERROR "kmxf.pc says version ${modversion}, the project ${VERSION}")
endif()
run(${CXX} -std=c++20 ${cflags} ${source}/consumer.cpp ${libs} -o ${WORK}/consumer)
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR} ${WORK}/consumer)

if(EXISTS ${prefix}/bin/kmxf)
    execute_process(COMMAND ${prefix}/bin/kmxf --version OUTPUT_VARIABLE said COMMAND_ERROR_IS_FATAL ANY)
    if(NOT said MATCHES "${VERSION}")
        message(FATAL_ERROR "the installed program says: ${said}")
    endif()
endif()
