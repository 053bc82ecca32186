# Directories of an installation. CMake sets the mode of a directory that a rule names, and leaves those above it to the
# umask of whoever installs. So all of them are made first; one that is there already stays as it is.

# monp_install_directories(COMPONENT DIRECTORY... [EXCLUDE_FROM_ALL]): below the prefix, or absolute.
function(monp_install_directories COMPONENT)
    cmake_parse_arguments(PARSE_ARGV 1 given "EXCLUDE_FROM_ALL" "" "")
    set(excluded "")
    if(given_EXCLUDE_FROM_ALL)
        set(excluded EXCLUDE_FROM_ALL)
    endif()
    install(CODE "
        include(\"${CMAKE_CURRENT_FUNCTION_LIST_DIR}/make_directories.cmake\")
        monp_make_directories(${given_UNPARSED_ARGUMENTS})"
        COMPONENT ${COMPONENT} ${excluded})
endfunction()
