# Compiler and linker options of every target of this project.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

# A compiler cache makes fresh clones and changes of branch cheap. Another one may be named on the
# command line or in the environment, as always.
find_program(NOTIFYPI_CCACHE ccache)
if(NOTIFYPI_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER ${NOTIFYPI_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${NOTIFYPI_CCACHE})
endif()

set(NOTIFYPI_SANITIZE "" CACHE STRING "Sanitizers, comma separated (see CMakePresets.json)")

add_library(notifypi_options INTERFACE)
target_compile_options(notifypi_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Werror
  -fstack-protector-strong)
target_compile_definitions(notifypi_options INTERFACE _FILE_OFFSET_BITS=64)

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(notifypi_options INTERFACE -Wthread-safety)
endif()

if(NOTIFYPI_SANITIZE)
  target_compile_options(notifypi_options INTERFACE
    -fsanitize=${NOTIFYPI_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -O1)
  target_link_options(notifypi_options INTERFACE -fsanitize=${NOTIFYPI_SANITIZE})
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
  target_compile_definitions(notifypi_options INTERFACE _FORTIFY_SOURCE=2)
endif()

# notifypi_library(NAME SOURCES file... USES library...)
#
# One static library for a folder of src/. The USES line is the whole list of what the folder may
# include; script/lint holds the folder to it.
function(notifypi_library name)
  cmake_parse_arguments(ARG "OBJECT" "" "SOURCES;USES" ${ARGN})
  set(kind STATIC)
  if(ARG_OBJECT)
    set(kind OBJECT)
  endif()
  add_library(notifypi_${name} ${kind} ${ARG_SOURCES})
  target_include_directories(notifypi_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(notifypi_${name} PRIVATE notifypi_options PUBLIC ${ARG_USES})
endfunction()
