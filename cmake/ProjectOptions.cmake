# Warnings and sanitizers for the project's own targets.
add_library(lm_project_options INTERFACE)
target_compile_options(lm_project_options INTERFACE
    -Wall -Wextra -Wpedantic $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local> -Wnon-virtual-dtor -Woverloaded-virtual -Wimplicit-fallthrough
    -Wcast-qual -Wformat=2 -Wmissing-declarations)
# GCC 12 reports -Wrestrict inside libstdc++'s string code at -O3 where no overlap can happen
# (GCC bug 105651); later compilers do not.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(lm_project_options INTERFACE -Wno-restrict)
endif()
if(LM_WARNINGS_AS_ERRORS)
    target_compile_options(lm_project_options INTERFACE -Werror)
endif()

if(LM_SANITIZE)
    string(REPLACE "," ";" lm_sanitizers "${LM_SANITIZE}")
    foreach(s IN LISTS lm_sanitizers)
        add_compile_options(-fsanitize=${s})
        add_link_options(-fsanitize=${s})
    endforeach()
    add_compile_options(-fno-omit-frame-pointer -fno-sanitize-recover=all)
endif()
if(LM_FUZZ)
    # Coverage for the fuzzer in everything it reaches; the targets link the fuzzer's main.
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# A platform library: an object library whose objects end up in the one shared component,
# so that every exported class exists exactly once in a process.
function(lm_platform_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
    add_library(${name} OBJECT ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/Platform>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/LibraryManager>)
    target_compile_definitions(${name} PRIVATE LM_BUILDING_LIBRARY)
    target_link_libraries(${name} PRIVATE lm_project_options ${ARG_DEPENDS})
endfunction()
