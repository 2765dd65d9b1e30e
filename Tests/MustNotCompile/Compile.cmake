# Compiles SOURCE with its fault (VARIANT Refused) or without (Repaired), and fails unless the compiler
# answers as it has to. CMakeLists.txt tells the form of a source.
cmake_minimum_required(VERSION 3.25)

file(STRINGS ${SOURCE} line LIMIT_COUNT 1)
if(line MATCHES "^// refused: (.+)$")
    set(reason "${CMAKE_MATCH_1}")
elseif(line MATCHES "^// unreachable: ([A-Za-z]+/([A-Za-z]+)\\.h)$")
    set(header ${CMAKE_MATCH_1})
    # A header that nobody has is not found either.
    file(GLOB found ${SOURCES}/*/${header} ${SOURCES}/*/*/${header} ${SOURCES}/*/*/*/${header})
    if(NOT found)
        message(FATAL_ERROR "No module has ${header}: it was moved, or is misspelt.")
    endif()
    string(REPLACE "." "\\." header ${header})
    set(reason "'${header}' file not found|${header}: No such file or directory")
else()
    message(FATAL_ERROR "The first line does not say why it is refused: ${line}")
endif()

set(definition)
if(VARIANT STREQUAL "Repaired")
    set(definition -DREPAIRED)
endif()
# In the plain locale g++ puts names between the quotation marks that clang uses.
execute_process(
    COMMAND ${CMAKE_COMMAND} -E env LC_ALL=C ${COMPILER} @${ARGUMENTS} ${definition} -fsyntax-only ${SOURCE}
    RESULT_VARIABLE status OUTPUT_VARIABLE said ERROR_VARIABLE said)

if(VARIANT STREQUAL "Repaired")
    if(NOT status EQUAL 0)
        message(NOTICE "${said}")
        message(FATAL_ERROR "Without its fault it does not compile.")
    endif()
    return()
endif()
if(status EQUAL 0)
    message(FATAL_ERROR "It compiles.")
endif()
# What follows the first error may be a consequence of it.
string(REGEX MATCH "error: [^\n]*" error "${said}")
if(NOT error MATCHES "${reason}")
    message(NOTICE "${said}")
    message(FATAL_ERROR "It was refused, but not for this: ${reason}")
endif()
