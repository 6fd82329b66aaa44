# Fails when a program in C cannot be built and run from nothing but what is installed of the socket library.
#
# cmake -D BUILD=<build tree> -D PREFIX=<where to install, removed before> -D CC=<C compiler of the target>
#       -D SOURCE=<the program> -D RUN=<what runs it: sandbox and emulator> -D READELF=<readelf of the target>
#       -D INCLUDES=<directory below the prefix> -D LIBRARIES=<likewise> -P socklib_is_complete_when_installed.cmake
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX} COMMAND_ERROR_IS_FATAL ANY)
set(PROGRAM ${PREFIX}/program)
# Also what the program does not call: nothing may be missing there either.
set(whole_library -Wl,--whole-archive -lvaltrix_socklib -Wl,--no-whole-archive)
execute_process(COMMAND ${CC} -std=c99 -Wall -Wextra -Werror -pedantic -I${PREFIX}/${INCLUDES} ${SOURCE}
                        -L${PREFIX}/${LIBRARIES} ${whole_library} -o ${PROGRAM} COMMAND_ERROR_IS_FATAL ANY)
include(${CMAKE_CURRENT_LIST_DIR}/needs_only_the_c_library.cmake)

# Nobody listens: for UDP the line has been sent all the same.
execute_process(COMMAND ${RUN} ${PROGRAM} syslog rfc5424 hello 127.0.0.1 514 RESULT_VARIABLE status ERROR_VARIABLE log)
if(NOT status EQUAL 0 OR NOT log MATCHES "Successfully sent syslog message to 127.0.0.1\n")
  message(FATAL_ERROR "exit status ${status}: ${log}")
endif()
