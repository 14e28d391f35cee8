# Whether the Python module is built: ON requires pybind11 and Python's
# headers (Debian: pybind11-dev, python3-dev), AUTO builds it when they are
# found, OFF never. The interpreter is the system's python3 when there is
# one, which Debian's Python packages (pytest, python3-intelhex) are
# installed for; HEXBLOCKS_PYTHON_EXECUTABLE names another.
set(HEXBLOCKS_BUILD_PYTHON AUTO CACHE STRING "Build the Python module: ON, OFF or AUTO (when pybind11 is found)")
set_property(CACHE HEXBLOCKS_BUILD_PYTHON PROPERTY STRINGS ON OFF AUTO)

set(HEXBLOCKS_PYTHON_MODULE OFF)
# AUTO builds it only for this project itself, not for a project that
# includes this one.
if(HEXBLOCKS_BUILD_PYTHON STREQUAL "AUTO" AND NOT PROJECT_IS_TOP_LEVEL)
    set(want_python OFF)
else()
    set(want_python ${HEXBLOCKS_BUILD_PYTHON})
endif()
if(NOT want_python STREQUAL "OFF" AND NOT CMAKE_CROSSCOMPILING)
    if(NOT HEXBLOCKS_PYTHON_EXECUTABLE)
        find_program(HEXBLOCKS_PYTHON_EXECUTABLE NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)
        find_program(HEXBLOCKS_PYTHON_EXECUTABLE NAMES python3)
    endif()
    set(PYBIND11_FINDPYTHON ON)
    set(Python_EXECUTABLE ${HEXBLOCKS_PYTHON_EXECUTABLE})
    if(HEXBLOCKS_BUILD_PYTHON STREQUAL "ON")
        find_package(pybind11 2.6 CONFIG REQUIRED)
    else()
        find_package(pybind11 2.6 CONFIG QUIET)
    endif()
    if(pybind11_FOUND AND Python_Development.Module_FOUND)
        set(HEXBLOCKS_PYTHON_MODULE ON)
    elseif(pybind11_FOUND AND TARGET Python::Module)
        set(HEXBLOCKS_PYTHON_MODULE ON)
    endif()
endif()
if(HEXBLOCKS_BUILD_PYTHON STREQUAL "AUTO" AND PROJECT_IS_TOP_LEVEL)
    if(HEXBLOCKS_PYTHON_MODULE)
        message(STATUS "hexblocks: building the Python module for ${Python_EXECUTABLE}")
    else()
        message(STATUS "hexblocks: not building the Python module (pybind11 or Python's headers not found)")
    endif()
endif()
