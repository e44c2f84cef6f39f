# VornTargets.cmake - the targets that every folder adds to, and the functions with which it does.
#
#   vorn_portable        objects of the sources that need no system; part of the module, host build included
#   vorn                 the module vorn_1_0.dll (Windows build only)
#   vorn_portable_static the portable sources once more as a static library, for tests that look inside
#
#   vorn_portable_sources(file...)   sources that never include <windows.h>
#   vorn_vector_sources(LEVEL file...)  portable sources compiled for a vector level of src/core/cpu.h
#   vorn_system_sources(file...)     sources that call the system
#   vorn_test(name file... [PORTABLE] [LIBRARIES lib...] [TIMEOUT seconds])
#       one test program and one CTest entry. PORTABLE: linked to vorn_portable_static instead of the
#       module, so that it may test internals, and built on the host too.
#   vorn_benchmark(name file... [LIBRARIES lib...])
#   vorn_fuzzer(name file...)        a libFuzzer target over the portable sources
#   vorn_soak(name file... [LIBRARIES lib...])
#       a long stress program soak_<name> over the module; the target "soak" builds it, ./dev soak runs it
#   vorn_example(name file...)       an example program: it sees the public headers alone

set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

add_library(vorn_options INTERFACE)
target_compile_options(vorn_options INTERFACE -Wall -Wextra -Wpedantic
    $<$<BOOL:${VORN_WARNINGS_AS_ERRORS}>:-Werror>)
target_include_directories(vorn_options INTERFACE
    ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)

if(WIN32)
    set(VORN_DEPS ${PROJECT_SOURCE_DIR}/build/deps CACHE PATH "Where cmake/deps/icu.cmake put its results")
    if(NOT EXISTS ${VORN_DEPS}/icu/done)
        message(FATAL_ERROR "ICU for Windows is not there yet. Build it once with: cmake -P cmake/deps/icu.cmake")
    endif()
    target_compile_definitions(vorn_options INTERFACE _WIN32_WINNT=0x0601 UNICODE _UNICODE)
    add_library(vorn_icu INTERFACE)
    target_include_directories(vorn_icu SYSTEM INTERFACE ${VORN_DEPS}/icu/include)
    target_link_libraries(vorn_icu INTERFACE ${VORN_DEPS}/icu/lib/libicuio.dll.a ${VORN_DEPS}/icu/lib/libicuuc.dll.a)
else()
    # The host's wchar_t is made to be a UTF-16 unit, as on Windows.
    target_compile_options(vorn_options INTERFACE -fshort-wchar)
    find_package(ICU REQUIRED COMPONENTS io uc)
    add_library(vorn_icu INTERFACE)
    target_link_libraries(vorn_icu INTERFACE ICU::io ICU::uc)
    find_package(Threads REQUIRED)
    target_link_libraries(vorn_icu INTERFACE Threads::Threads)
    if(VORN_SANITIZE)
        target_compile_options(vorn_options INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all
            -fno-omit-frame-pointer)
        target_link_options(vorn_options INTERFACE -fsanitize=address,undefined)
    endif()
    if(VORN_BUILD_FUZZERS)
        target_compile_options(vorn_options INTERFACE -fsanitize=fuzzer-no-link)
    endif()
endif()

add_library(vorn_portable_static STATIC)
target_link_libraries(vorn_portable_static PUBLIC vorn_options vorn_icu)
target_compile_definitions(vorn_portable_static PUBLIC VORN_STATIC)

if(WIN32)
    add_library(vorn_portable OBJECT)
    target_link_libraries(vorn_portable PRIVATE vorn_options vorn_icu)
    target_compile_definitions(vorn_portable PRIVATE VORN_BUILDING)
    add_library(vorn SHARED)
    target_sources(vorn PRIVATE $<TARGET_OBJECTS:vorn_portable>)
    target_link_libraries(vorn PRIVATE vorn_options vorn_icu)
    target_compile_definitions(vorn PRIVATE VORN_BUILDING)
    target_include_directories(vorn INTERFACE
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:include>)
    target_link_options(vorn PRIVATE -Wl,--output-def,${CMAKE_BINARY_DIR}/lib/vorn_1_0.def)
    set_target_properties(vorn PROPERTIES PREFIX "" OUTPUT_NAME vorn_1_0
        ARCHIVE_OUTPUT_NAME vorn_1_0 IMPORT_PREFIX lib IMPORT_SUFFIX .dll.a)

    # Programs run from the build tree need the module's DLLs beside them.
    file(GLOB runtimeDlls ${VORN_DEPS}/icu/lib/icu*72.dll ${VORN_DEPS}/icu/bin/icu*72.dll)
    foreach(name libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${name} OUTPUT_VARIABLE path
            OUTPUT_STRIP_TRAILING_WHITESPACE)
        if(NOT EXISTS ${path})
            set(path /usr/x86_64-w64-mingw32/lib/${name})
        endif()
        list(APPEND runtimeDlls ${path})
    endforeach()
    set(VORN_RUNTIME_DLLS ${runtimeDlls})
    file(MAKE_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
    foreach(path IN LISTS runtimeDlls)
        get_filename_component(name ${path} NAME)
        if(NOT EXISTS ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name})
            file(CREATE_LINK ${path} ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name} COPY_ON_ERROR SYMBOLIC)
        endif()
    endforeach()
    set(CMAKE_CROSSCOMPILING_EMULATOR ${PROJECT_SOURCE_DIR}/cmake/run-wine.sh;${CMAKE_BINARY_DIR}/wine)
endif()

function(vorn_resolve out)
    set(result "")
    foreach(file IN LISTS ARGN)
        cmake_path(ABSOLUTE_PATH file BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
        list(APPEND result ${file})
    endforeach()
    set(${out} ${result} PARENT_SCOPE)
endfunction()

function(vorn_portable_sources)
    vorn_resolve(files ${ARGN})
    target_sources(vorn_portable_static PRIVATE ${files})
    if(WIN32)
        target_sources(vorn_portable PRIVATE ${files})
    endif()
endfunction()

# -O3 takes apart the short loops over the parts of a block.
set(VORN_VECTOR_FLAGS_SSE41 $<$<CONFIG:Release>:-O3> -mssse3 -msse4.1 -mpopcnt)
set(VORN_VECTOR_FLAGS_AVX2 ${VORN_VECTOR_FLAGS_SSE41} -mavx2 -mbmi -mbmi2)
set(VORN_VECTOR_FLAGS_AVX512 ${VORN_VECTOR_FLAGS_AVX2} -mavx512f -mavx512bw -mavx512dq -mavx512vl -mavx512vbmi
    -mavx512vbmi2)
if(WIN32)
    # The stack is aligned to 16 bytes only, and the compiler spills wide registers with aligned moves all the
    # same; the assembler turns those into unaligned ones, which are as fast.
    list(APPEND VORN_VECTOR_FLAGS_AVX2 -Wa,-muse-unaligned-vector-move)
    list(APPEND VORN_VECTOR_FLAGS_AVX512 -Wa,-muse-unaligned-vector-move)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Constants are loaded; the compiler would rather put each together from general registers, every time.
    list(APPEND VORN_VECTOR_FLAGS_AVX2 -mtune-ctrl=^inter_unit_moves_to_vec)
    # The compiler's own intrinsics headers set registers to themselves where the content does not matter.
    list(APPEND VORN_VECTOR_FLAGS_AVX512 -Wno-uninitialized -Wno-maybe-uninitialized)
endif()

function(vorn_vector_sources level)
    vorn_portable_sources(${ARGN})
    set(targets vorn_portable_static)
    if(WIN32)
        list(APPEND targets vorn_portable)
    endif()
    foreach(target IN LISTS targets)
        set_property(SOURCE ${ARGN} TARGET_DIRECTORY ${target} APPEND PROPERTY COMPILE_OPTIONS
            ${VORN_VECTOR_FLAGS_${level}})
    endforeach()
endfunction()

function(vorn_system_sources)
    if(WIN32)
        vorn_resolve(files ${ARGN})
        target_sources(vorn PRIVATE ${files})
    endif()
endfunction()

function(vorn_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "PORTABLE" "TIMEOUT" "LIBRARIES")
    if(NOT WIN32 AND NOT arg_PORTABLE)
        return()
    endif()
    add_executable(${name} ${arg_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PRIVATE vorn_options ${arg_LIBRARIES} vorn_test_support)
    if(arg_PORTABLE)
        target_link_libraries(${name} PRIVATE vorn_portable_static)
    else()
        target_link_libraries(${name} PRIVATE vorn)
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT})
    if(WIN32)
        set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED wine)
    endif()
endfunction()

function(vorn_benchmark name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LIBRARIES")
    add_executable(${name} ${arg_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PRIVATE vorn_options vorn vorn_bench_support ${arg_LIBRARIES})
    set_property(GLOBAL APPEND PROPERTY vorn_benchmarks ${name})
endfunction()

function(vorn_soak name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LIBRARIES")
    if(WIN32)
        add_executable(soak_${name} EXCLUDE_FROM_ALL ${arg_UNPARSED_ARGUMENTS})
        target_link_libraries(soak_${name} PRIVATE vorn_options vorn ${arg_LIBRARIES} vorn_test_support)
        if(NOT TARGET soak)
            add_custom_target(soak)
        endif()
        add_dependencies(soak soak_${name})
    endif()
endfunction()

function(vorn_example name)
    add_executable(${name} ${ARGN})
    target_include_directories(${name} PRIVATE ${name})
    target_compile_options(${name} PRIVATE -Wall -Wextra -Wpedantic
        $<$<BOOL:${VORN_WARNINGS_AS_ERRORS}>:-Werror>)
    target_link_libraries(${name} PRIVATE vorn)
    target_link_options(${name} PRIVATE -municode)
    if(NOT TARGET examples)
        add_custom_target(examples)
    endif()
    add_dependencies(examples ${name})
endfunction()

function(vorn_fuzzer name)
    if(VORN_BUILD_FUZZERS)
        add_executable(${name} ${ARGN})
        target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
        target_link_libraries(${name} PRIVATE vorn_portable_static)
        target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    endif()
endfunction()
