# API documentation of the public headers with Doxygen, when it is installed:
# cmake --build --preset default --target docs  ->  build/default/docs/html
find_package(Doxygen QUIET)
if(DOXYGEN_FOUND AND PROJECT_IS_TOP_LEVEL)
    set(DOXYGEN_PROJECT_NAME intelhex)
    set(DOXYGEN_PROJECT_BRIEF "${PROJECT_DESCRIPTION}")
    set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/docs)
    set(DOXYGEN_GENERATE_LATEX NO)
    set(DOXYGEN_EXTRACT_ALL NO)
    set(DOXYGEN_EXTRACT_PRIVATE NO)
    set(DOXYGEN_WARN_IF_UNDOCUMENTED YES)
    set(DOXYGEN_WARN_AS_ERROR YES)
    set(DOXYGEN_QUIET YES)
    set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
    set(DOXYGEN_MACRO_EXPANSION YES)
    set(DOXYGEN_PREDEFINED "INTELHEX_API=")
    set(DOXYGEN_FULL_PATH_NAMES NO)
    doxygen_add_docs(docs ${PROJECT_SOURCE_DIR}/util/intelhex.h ${PROJECT_SOURCE_DIR}/util/memory_image.h
        ${PROJECT_SOURCE_DIR}/util/checksum.h ${PROJECT_SOURCE_DIR}/util/flash_plan.h
        ${PROJECT_SOURCE_DIR}/util/utility.h
        COMMENT "API documentation with Doxygen")
endif()
