# benchmark.cmake - cross-builds Google Benchmark as a static library into <repository>/build/deps/benchmark.
#
# Run as: cmake -P cmake/deps/benchmark.cmake      (done already: returns at once)
# Its users define BENCHMARK_STATIC_DEFINE.

cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/source_package.cmake)

get_filename_component(root ${CMAKE_CURRENT_LIST_DIR}/../.. ABSOLUTE)
set(deps ${root}/build/deps)
set(prefix ${deps}/benchmark)
set(work ${deps}/work)
if(EXISTS ${prefix}/done)
    return()
endif()
file(MAKE_DIRECTORY ${work})

message(STATUS "Google Benchmark: fetching the source package")
vorn_fetch_source(benchmark ${work})
file(GLOB source ${work}/benchmark/benchmark-*)
file(GLOB source ${source}/CMakeLists.txt)
get_filename_component(source ${source} DIRECTORY)
set(buildDir ${work}/benchmark-build)
file(REMOVE_RECURSE ${buildDir})

message(STATUS "Google Benchmark: building")
vorn_run("Google Benchmark: configure" ${deps}/benchmark-configure.log
    ${CMAKE_COMMAND} -S ${source} -B ${buildDir} -G Ninja
    -DCMAKE_TOOLCHAIN_FILE=${root}/cmake/mingw64.cmake -DCMAKE_BUILD_TYPE=Release
    -DCMAKE_INSTALL_PREFIX=${prefix} -DBENCHMARK_ENABLE_TESTING=OFF -DBUILD_SHARED_LIBS=OFF
    -DGIT_VERSION=0.0.0 -DHAVE_STD_REGEX=1 -DRUN_HAVE_STD_REGEX=1 -DRUN_HAVE_STEADY_CLOCK=1)
vorn_run("Google Benchmark: build" ${deps}/benchmark-build.log ${CMAKE_COMMAND} --build ${buildDir} --target install)
file(WRITE ${prefix}/done "")
file(REMOVE_RECURSE ${buildDir})
