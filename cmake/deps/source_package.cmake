# source_package.cmake - fetches a distribution source package with a private apt configuration.
#
# vorn_fetch_source(<package> <directory>) unpacks the source of <package> under <directory>/<package>.
# The package source is derived from the machine's own apt configuration (each "deb" entry becomes
# "deb-src"), so no host is written down here and the machine's configuration is left alone.

function(vorn_write_source_list directory)
    file(REMOVE_RECURSE ${directory}/apt)
    file(MAKE_DIRECTORY ${directory}/apt/parts ${directory}/apt/lists/partial ${directory}/apt/cache/archives/partial)
    set(oneLine "")
    set(listFiles "")
    file(GLOB listFiles /etc/apt/sources.list /etc/apt/sources.list.d/*.list)
    foreach(listFile IN LISTS listFiles)
        file(STRINGS ${listFile} lines REGEX "^deb[ \t]")
        foreach(line IN LISTS lines)
            string(REGEX REPLACE "^deb([ \t])" "deb-src\\1" line "${line}")
            string(APPEND oneLine "${line}\n")
        endforeach()
    endforeach()
    file(WRITE ${directory}/apt/sources.list "${oneLine}")
    file(GLOB deb822Files /etc/apt/sources.list.d/*.sources)
    foreach(deb822File IN LISTS deb822Files)
        get_filename_component(name ${deb822File} NAME)
        file(READ ${deb822File} text)
        string(REGEX REPLACE "(^|\n)Types:[^\n]*" "\\1Types: deb-src" text "${text}")
        file(WRITE ${directory}/apt/parts/${name} "${text}")
    endforeach()
    file(WRITE ${directory}/apt/apt.conf
        "Dir::Etc::sourcelist \"${directory}/apt/sources.list\";\n"
        "Dir::Etc::sourceparts \"${directory}/apt/parts\";\n"
        "Dir::State::lists \"${directory}/apt/lists\";\n"
        "Dir::Cache \"${directory}/apt/cache\";\n"
        "APT::Sandbox::User \"root\";\n"
        "Acquire::Languages \"none\";\n")
endfunction()

function(vorn_run what log)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_FILE ${log} ERROR_FILE ${log})
    if(NOT result EQUAL 0)
        execute_process(COMMAND tail -n 25 ${log})
        message(FATAL_ERROR "${what} failed; the whole log: ${log}")
    endif()
endfunction()

function(vorn_fetch_source package directory)
    set(ENV{APT_CONFIG} ${directory}/apt/apt.conf)
    if(NOT EXISTS ${directory}/apt/updated)
        vorn_write_source_list(${directory})
        execute_process(COMMAND apt-get update --error-on=any RESULT_VARIABLE result
            OUTPUT_FILE ${directory}/apt-update.log ERROR_FILE ${directory}/apt-update.log)
        if(NOT result EQUAL 0)
            message(FATAL_ERROR "The package source cannot be reached (apt-get update failed; log: ${directory}/apt-update.log)")
        endif()
        file(WRITE ${directory}/apt/updated "")
    endif()
    file(REMOVE_RECURSE ${directory}/${package})
    file(MAKE_DIRECTORY ${directory}/${package})
    execute_process(COMMAND apt-get source ${package} WORKING_DIRECTORY ${directory}/${package}
        RESULT_VARIABLE result OUTPUT_FILE ${directory}/${package}.fetch.log ERROR_FILE ${directory}/${package}.fetch.log)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "The source package '${package}' cannot be had (log: ${directory}/${package}.fetch.log)")
    endif()
endfunction()
