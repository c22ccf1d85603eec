# Settings that every target of the project shares.
add_library(kmxf_build INTERFACE)
target_compile_features(kmxf_build INTERFACE cxx_std_20)
target_compile_options(kmxf_build INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
    -Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast)
# GCC 12 sees overlaps in string concatenation that are not there (GCC bug 105651).
target_compile_options(kmxf_build INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
# Files larger than 2 GiB and times after 2038, on machines of 32 bits too.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    target_compile_definitions(kmxf_build INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()
if(KMXF_SANITIZE)
    target_compile_options(kmxf_build INTERFACE -fsanitize=${KMXF_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(kmxf_build INTERFACE -fsanitize=${KMXF_SANITIZE})
    # With the sanitizers goes the standard library's own checking of indices.
    target_compile_definitions(kmxf_build INTERFACE _GLIBCXX_ASSERTIONS)
    # Collecting garbage takes GCC a fifteenth of its time; the largest of our sources takes it to 1.4 GB without.
    target_compile_options(kmxf_build INTERFACE $<$<CXX_COMPILER_ID:GNU>:--param=ggc-min-heapsize=1000000>)
endif()
# Warnings are errors here, but not for who builds the library inside another project.
if(PROJECT_IS_TOP_LEVEL AND NOT DEFINED CMAKE_COMPILE_WARNING_AS_ERROR)
    set(CMAKE_COMPILE_WARNING_AS_ERROR ON)
endif()
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# kmxf_together(TARGET PATTERN...): under the sanitizers, those sources of a target that a pattern matches are compiled as one; the
# last pattern counts. Most of the time goes into what they all include and instantiate.
function(kmxf_together target)
    if(NOT KMXF_SANITIZE)
        return()
    endif()
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
    get_target_property(sources ${target} SOURCES)
    foreach(pattern IN LISTS ARGN)
        set(group ${sources})
        list(FILTER group INCLUDE REGEX "${pattern}")
        string(MAKE_C_IDENTIFIER "${pattern}" name)
        set_source_files_properties(${group} PROPERTIES UNITY_GROUP ${name})
    endforeach()
endfunction()

# kmxf_subsystem(NAME SOURCES ...): one floor of the library, compiled once. Its objects go into the shared library, into the
# static twin and into the tests of this floor and of those above.
function(kmxf_subsystem name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES")
    add_library(kmxf_${name} OBJECT ${arg_SOURCES})
    target_include_directories(kmxf_${name} PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
    target_compile_definitions(kmxf_${name} PRIVATE KMXF_BUILDING)
    target_link_libraries(kmxf_${name} PRIVATE kmxf_build)
    if(KMXF_SANITIZE)
        # It does the tests' work: as fast to compile as without optimising, and a quarter faster.
        target_compile_options(kmxf_${name} PRIVATE -Og)
    endif()
    set_target_properties(kmxf_${name} PROPERTIES
        POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
endfunction()
