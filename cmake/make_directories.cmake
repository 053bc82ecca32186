# Part of the install script, see install_directories.cmake.

# The prefix goes into a unit, into shell scripts and into XML, none of which needs an escape then.
if(CMAKE_INSTALL_PREFIX MATCHES "[\"'\\$`%;&<>\n\r\t]")
    message(FATAL_ERROR "The prefix \"${CMAKE_INSTALL_PREFIX}\" has a quote, a line end, a tab, or one of "
        "\\ $ ` % ; & < >. Choose another one.")
endif()

# Makes one directory and what is missing above it. Below DESTDIR all are new, and made by us or by cpack.
function(monp_make_directory PATH)
    set(directory "$ENV{DESTDIR}${PATH}")
    if(PATH STREQUAL "/" OR ("$ENV{DESTDIR}" STREQUAL "" AND EXISTS "${directory}"))
        return()
    endif()
    cmake_path(GET PATH PARENT_PATH parent)
    monp_make_directory("${parent}")
    file(MAKE_DIRECTORY "${directory}")
    file(CHMOD "${directory}" PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
endfunction()

function(monp_make_directories)
    foreach(directory ${ARGN})
        cmake_path(ABSOLUTE_PATH directory BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
        monp_make_directory("${directory}")
    endforeach()
endfunction()
