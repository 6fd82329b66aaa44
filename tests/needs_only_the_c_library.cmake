# Fails when a program asks for a shared library that is not part of the C library.
#
# cmake -D PROGRAM=<executable> -D READELF=<readelf of the target> -P needs_only_the_c_library.cmake
execute_process(COMMAND ${READELF} -d ${PROGRAM} OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*\\[[^]\n]*\\]" entries "${dynamic}")
if(NOT entries)
  message(FATAL_ERROR "${PROGRAM} is not dynamically linked:\n${dynamic}")
endif()
foreach(entry ${entries})
  string(REGEX REPLACE ".*\\[(.*)\\]" "\\1" library "${entry}")
  message("${library}")
  if(NOT library MATCHES "^(libc|libpthread|librt|ld|ld64|ld-linux[a-z0-9-]*|ld-uClibc)\\.so(\\.[0-9]+)*$")
    message(SEND_ERROR "${library} is no part of the C library")
  endif()
endforeach()
