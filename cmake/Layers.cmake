# The library, layer by layer. Each layer is a folder of util/ and an OBJECT
# library that sees its own folder and the layers below it, and nothing
# above: a source that includes a header of a higher layer does not compile.
#
#   text     record scanner, hex decoder, hex formatting, the result model,
#            the export macro
#   image    the memory image, its edits and comparison, checksums
#   formats  readers and writers of every format, reading and writing files
#   flash    flash plans and the page walker
#   exact    IntelHexFile and IntelHexFileBlock (util/intelhex.h, .cpp and
#            util/utility.h, where they have always been), their readers,
#            and the bridge between images and blocks
#   capi     the C API (hexblocks.h): the layers below for C, with opaque
#            handles, status codes and versioned option structs
#
# The library itself, hexblocks, is made of the objects of every layer.
set(HEXBLOCKS_LAYERS text image formats flash exact capi)

set(HEXBLOCKS_text_SOURCES
    util/text/export.h
    util/text/hex_decoder.cpp util/text/hex_decoder.h
    util/text/hex_format.cpp util/text/hex_format.h
    util/text/record_scanner.cpp util/text/record_scanner.h
    util/text/result.cpp util/text/result.h)
set(HEXBLOCKS_image_SOURCES
    util/image/checksum.cpp util/image/checksum.h
    util/image/digest.cpp util/image/digest.h
    util/image/image_builder.h
    util/image/image_compare.cpp
    util/image/image_edits.cpp
    util/image/image_ranges.h
    util/image/memory_image.cpp util/image/memory_image.h
    util/image/region_window.cpp util/image/region_window.h
    util/image/sha2_blocks.cpp util/image/sha2_blocks.h)
set(HEXBLOCKS_formats_SOURCES
    util/formats/c_array_format.cpp
    util/formats/coe_format.cpp
    util/formats/elf_reader.cpp util/formats/elf_reader.h
    util/formats/format_table.cpp util/formats/format_table.h
    util/formats/formats.cpp util/formats/formats.h
    util/formats/full_format_reader.cpp util/formats/full_format_reader.h
    util/formats/image_writer.cpp util/formats/image_writer.h
    util/formats/intel_hex16_format.cpp
    util/formats/mif_format.cpp
    util/formats/output_buffer.h
    util/formats/output_file.cpp util/formats/output_file.h
    util/formats/record_assembler.cpp util/formats/record_assembler.h
    util/formats/srecord_reader.cpp util/formats/srecord_reader.h
    util/formats/text_lines.h
    util/formats/ti_txt_format.cpp
    util/formats/uf2_format.cpp
    util/formats/verilog_format.cpp)
set(HEXBLOCKS_flash_SOURCES
    util/flash/flash_plan.cpp util/flash/flash_plan.h)
set(HEXBLOCKS_exact_SOURCES
    util/intelhex.cpp util/intelhex.h util/utility.h
    util/exact/exact_reader.cpp util/exact/exact_reader.h
    util/exact/fast_reader.cpp util/exact/fast_reader.h
    util/exact/image_blocks.cpp util/exact/image_blocks.h)
set(HEXBLOCKS_capi_SOURCES
    util/capi/c_checksums.cpp
    util/capi/c_flash.cpp
    util/capi/c_formats.cpp
    util/capi/c_image.cpp
    util/capi/c_support.cpp util/capi/c_support.h
    util/capi/hexblocks.h)

# The one list of public headers: installed under include/hexblocks, offered
# in the build tree as <hexblocks/...>, documented, and exported.
set(HEXBLOCKS_PUBLIC_HEADERS
    util/text/export.h
    util/text/result.h
    util/image/memory_image.h
    util/image/checksum.h
    util/image/digest.h
    util/formats/formats.h
    util/flash/flash_plan.h
    util/intelhex.h
    util/utility.h
    util/exact/image_blocks.h
    util/capi/hexblocks.h)

# Sources that hold no exported class or function. Tests built against the
# shared library reach these through a copy of their own.
set(HEXBLOCKS_INTERNAL_SOURCES
    util/text/hex_decoder.cpp util/text/hex_format.cpp util/text/record_scanner.cpp
    util/image/region_window.cpp util/image/sha2_blocks.cpp
    util/formats/elf_reader.cpp util/formats/full_format_reader.cpp util/formats/image_writer.cpp
    util/formats/output_file.cpp util/formats/record_assembler.cpp util/formats/srecord_reader.cpp
    util/exact/fast_reader.cpp)

# The folders each layer sees, its own and those below it.
set(below "")
foreach(layer IN LISTS HEXBLOCKS_LAYERS)
    list(APPEND below ${PROJECT_SOURCE_DIR}/util/${layer})
    set(HEXBLOCKS_${layer}_INCLUDES ${below})
endforeach()
# The exact layer's public headers lie in util/ itself.
list(APPEND HEXBLOCKS_exact_INCLUDES ${PROJECT_SOURCE_DIR}/util)
list(APPEND HEXBLOCKS_capi_INCLUDES ${PROJECT_SOURCE_DIR}/util)

# Position-independent code for a shared library, and for the static one
# when the Python module (a shared object) links it.
if(BUILD_SHARED_LIBS OR HEXBLOCKS_PYTHON_MODULE)
    set(HEXBLOCKS_PIC ON)
else()
    set(HEXBLOCKS_PIC OFF)
endif()
foreach(layer IN LISTS HEXBLOCKS_LAYERS)
    add_library(hexblocks_${layer} OBJECT ${HEXBLOCKS_${layer}_SOURCES})
    target_include_directories(hexblocks_${layer} PRIVATE ${HEXBLOCKS_${layer}_INCLUDES})
    target_compile_features(hexblocks_${layer} PUBLIC cxx_std_17)
    target_link_libraries(hexblocks_${layer} PRIVATE hexblocks_warnings)
    # Only what is marked HEXBLOCKS_API is exported from the shared object.
    set_target_properties(hexblocks_${layer} PROPERTIES
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ${HEXBLOCKS_PIC})
endforeach()
target_compile_definitions(hexblocks_capi PRIVATE HEXBLOCKS_VERSION="${PROJECT_VERSION}")

# Every header of every layer, for the project's tests, benchmarks and fuzz
# targets, which reach the internals.
add_library(hexblocks_internal_headers INTERFACE)
target_include_directories(hexblocks_internal_headers INTERFACE ${HEXBLOCKS_capi_INCLUDES})

foreach(header IN LISTS HEXBLOCKS_PUBLIC_HEADERS)
    get_filename_component(name ${header} NAME)
    configure_file(${header} ${PROJECT_BINARY_DIR}/include/hexblocks/${name} COPYONLY)
endforeach()

add_library(hexblocks)
add_library(hexblocks::hexblocks ALIAS hexblocks)
foreach(layer IN LISTS HEXBLOCKS_LAYERS)
    target_sources(hexblocks PRIVATE $<TARGET_OBJECTS:hexblocks_${layer}>)
endforeach()
target_sources(hexblocks PRIVATE ${HEXBLOCKS_PUBLIC_HEADERS})
target_include_directories(hexblocks PUBLIC
    $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(hexblocks PUBLIC cxx_std_17)
set_target_properties(hexblocks PROPERTIES
    LINKER_LANGUAGE CXX
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
    PUBLIC_HEADER "${HEXBLOCKS_PUBLIC_HEADERS}")
if(BUILD_SHARED_LIBS)
    target_link_options(hexblocks PRIVATE "LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/hexblocks.map")
    set_target_properties(hexblocks PROPERTIES LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/hexblocks.map)
endif()
