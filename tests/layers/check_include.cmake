# Compiles a source that includes HEADER with the include directories of
# one layer of the library, and checks that it compiles (EXPECT=pass) or
# does not (EXPECT=fail): a layer sees its own headers and those of the
# layers below it, and no header of a layer above it.
#
#   cmake -DCOMPILER=c++ -DINCLUDES="dir;dir" -DHEADER=memory_image.h
#         -DEXPECT=fail -DWORK=dir -P check_include.cmake
foreach(variable COMPILER INCLUDES HEADER EXPECT WORK)
    if(NOT DEFINED ${variable})
        message(FATAL_ERROR "${variable} is not set")
    endif()
endforeach()

file(MAKE_DIRECTORY ${WORK})
string(MAKE_C_IDENTIFIER "${HEADER}" name)
set(source ${WORK}/includes_${name}.cpp)
file(WRITE ${source} "#include \"${HEADER}\"\n")
set(flags -std=c++17 -fsyntax-only)
foreach(dir IN LISTS INCLUDES)
    list(APPEND flags -I${dir})
endforeach()
execute_process(COMMAND ${COMPILER} ${flags} ${source}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)

if(EXPECT STREQUAL "pass" AND NOT result EQUAL 0)
    message(FATAL_ERROR "${HEADER} should compile with ${INCLUDES}:\n${output}")
elseif(EXPECT STREQUAL "fail")
    if(result EQUAL 0)
        message(FATAL_ERROR "${HEADER} compiled with ${INCLUDES}, which should not see it")
    endif()
    # It must fail for the reason tested, the header not being found.
    string(FIND "${output}" "${HEADER}" named)
    if(named EQUAL -1 OR NOT output MATCHES "No such file|file not found")
        message(FATAL_ERROR "${HEADER} failed to compile for another reason:\n${output}")
    endif()
endif()
message(STATUS "${HEADER}: ${EXPECT}, as expected")
