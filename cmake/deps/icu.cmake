# icu.cmake - cross-builds ICU as shared DLLs into <repository>/build/deps/icu.
#
# Run as: cmake -P cmake/deps/icu.cmake      (done already: returns at once)
# No native ICU build is needed: the cross build takes its data tools from the distribution's
# icu-devtools, which come from the same source package and so are of the same version.

cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/source_package.cmake)

get_filename_component(root ${CMAKE_CURRENT_LIST_DIR}/../.. ABSOLUTE)
set(deps ${root}/build/deps)
set(prefix ${deps}/icu)
set(work ${deps}/work)
if(EXISTS ${prefix}/done)
    return()
endif()
file(MAKE_DIRECTORY ${work})

message(STATUS "ICU: fetching the source package")
vorn_fetch_source(icu ${work})
file(GLOB source ${work}/icu/icu-*/source)

# The folder that --with-cross-build expects: the host's data tools and two make fragments.
set(cross ${work}/icu-cross)
file(REMOVE_RECURSE ${cross})
file(MAKE_DIRECTORY ${cross}/bin ${cross}/config ${cross}/lib)
foreach(tool icupkg pkgdata genrb gencnval gencfu genbrk gendict gensprep gencmn genccode gennorm2 derb makeconv uconv)
    find_program(found_${tool} ${tool} PATHS /usr/bin /usr/sbin NO_DEFAULT_PATH)
    if(found_${tool})
        file(CREATE_LINK ${found_${tool}} ${cross}/bin/${tool} SYMBOLIC)
    endif()
endforeach()
execute_process(COMMAND ${found_genrb} --version OUTPUT_VARIABLE toolVersion ERROR_VARIABLE toolVersion)
string(REGEX MATCH "ICU version[^0-9]*([0-9]+\\.[0-9]+)" ignored "${toolVersion}")
set(icuVersion ${CMAKE_MATCH_1})
if(icuVersion STREQUAL "")
    file(STRINGS ${source}/common/unicode/uvernum.h versionLine REGEX "#define U_ICU_VERSION \"")
    string(REGEX MATCH "\"([^\"]+)\"" ignored "${versionLine}")
    set(icuVersion ${CMAKE_MATCH_1})
endif()
file(WRITE ${cross}/config/icucross.mk
    "CROSS_ICU_VERSION=${icuVersion}\nTOOLEXEEXT=\nTOOLBINDIR=${cross}/bin\nTOOLLIBDIR=${cross}/lib\nINVOKE=\n")
file(WRITE ${cross}/config/icucross.inc
    "CROSS_ICU_VERSION=${icuVersion}\nTOOLEXEEXT=\nTOOLBINDIR=${cross}/bin\nTOOLLIBDIR=${cross}/lib\nINVOKE=\n")

set(buildDir ${work}/icu-build)
file(REMOVE_RECURSE ${buildDir})
file(MAKE_DIRECTORY ${buildDir})
cmake_host_system_information(RESULT cores QUERY NUMBER_OF_LOGICAL_CORES)

message(STATUS "ICU: configuring")
set(ENV{CC} x86_64-w64-mingw32-gcc-posix)
set(ENV{CXX} x86_64-w64-mingw32-g++-posix)
execute_process(COMMAND ${source}/configure --host=x86_64-w64-mingw32 --with-cross-build=${cross} --prefix=${prefix}
        --disable-tests --disable-samples --disable-extras --disable-tools --disable-static --enable-shared
    WORKING_DIRECTORY ${buildDir} RESULT_VARIABLE result
    OUTPUT_FILE ${deps}/icu-configure.log ERROR_FILE ${deps}/icu-configure.log)
if(NOT result EQUAL 0)
    execute_process(COMMAND tail -n 25 ${deps}/icu-configure.log)
    message(FATAL_ERROR "ICU: configure failed; the whole log: ${deps}/icu-configure.log")
endif()

message(STATUS "ICU: building (about two minutes on two cores)")
vorn_run("ICU: build" ${deps}/icu-build.log make -C ${buildDir} -j${cores})
message(STATUS "ICU: installing")
vorn_run("ICU: install" ${deps}/icu-install.log make -C ${buildDir} install)
file(WRITE ${prefix}/done "${icuVersion}\n")
file(REMOVE_RECURSE ${buildDir})
