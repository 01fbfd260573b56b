# Installs the build into an empty folder, builds the consumer against it in both ways, and runs it.
#   cmake -D BUILD=... -D SOURCE=... -D WORK=... -D COMPILER=... -D FLAGS=... -D LIBDIR=... -P run.cmake
function(step)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${ARGN}\nended with ${result}\n${output}")
    endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
step(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
set(ENV{PKG_CONFIG_PATH} ${WORK}/prefix/${LIBDIR}/pkgconfig)
step(${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK}/build -D CMAKE_PREFIX_PATH=${WORK}/prefix -D CMAKE_CXX_COMPILER=${COMPILER}
     "-DCMAKE_CXX_FLAGS=${FLAGS} -Wall -Wextra -Werror" -D CMAKE_BUILD_TYPE=Release)
step(${CMAKE_COMMAND} --build ${WORK}/build)
set(ENV{LD_LIBRARY_PATH} ${WORK}/prefix/${LIBDIR})
foreach(program consumer consumer-pkgconfig)
    step(${CMAKE_COMMAND} -E chdir ${WORK} ${WORK}/build/${program})
endforeach()

# The library finds the dialog in the installed tree, which was moved there: it starts, and misses its display.
file(GLOB dialog ${WORK}/prefix/*/bedrock/bedrock-report)
if(dialog)
    set(ENV{DISPLAY} :65535)
    unset(ENV{BEDROCK_REPORT})
    execute_process(COMMAND ${WORK}/build/consumer fail WORKING_DIRECTORY ${WORK}
        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output INPUT_FILE /dev/null)
    if(NOT result EQUAL 0 OR NOT output MATCHES "bedrock-report: Can't open display.*Reason: on purpose")
        message(FATAL_ERROR "the installed dialog was not started: ${result}\n${output}")
    endif()
endif()
