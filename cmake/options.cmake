# Compile options, as two interface targets: what everything gets, and what the module adds.

add_library(mlist_options INTERFACE)
target_compile_definitions(mlist_options INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
target_compile_options(mlist_options INTERFACE
  -Wall -Wextra -Wshadow -Wformat=2 -Wvla -Wundef -Werror -fstack-protector-strong)
# g++ 12 sees overlapping copies in std::string's operator+ that are not there.
target_compile_options(mlist_options INTERFACE
  $<$<AND:$<COMPILE_LANG_AND_ID:CXX,GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
target_include_directories(mlist_options INTERFACE ${CMAKE_SOURCE_DIR}/include)
target_link_libraries(mlist_options INTERFACE Threads::Threads)
if(CMAKE_BUILD_TYPE STREQUAL "Release" OR CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
  target_compile_definitions(mlist_options INTERFACE _FORTIFY_SOURCE=2)
endif()
if(MLIST_SANITIZE)
  target_compile_options(mlist_options INTERFACE
    -fsanitize=${MLIST_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  # g++ loses sight of a std::optional's flag under the instrumentation.
  target_compile_options(mlist_options INTERFACE
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-maybe-uninitialized>)
  target_link_options(mlist_options INTERFACE -fsanitize=${MLIST_SANITIZE})
endif()

# The module lives in somebody else's process: no exceptions, nothing of the C++ run time, only the
# names of module/mlist.map visible.
add_library(mlist_module_options INTERFACE)
target_compile_options(mlist_module_options INTERFACE
  -fno-exceptions -fno-rtti -fvisibility=hidden -fno-threadsafe-statics)
target_include_directories(mlist_module_options INTERFACE ${CMAKE_SOURCE_DIR})
target_link_libraries(mlist_module_options INTERFACE mlist_options)

# One static library for each layer of the module; the shared module is made of all of them, and a
# unit test links just the ones it needs.
function(mlist_layer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;NEEDS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC mlist_options ${ARG_NEEDS} PRIVATE mlist_module_options)
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR})
endfunction()
