# Language level, warnings, sanitizers and hardening: one place for all targets.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)

include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

set(MONP_SANITIZE "" CACHE STRING "Sanitizers for all targets, as -fsanitize= takes them; empty for none")
option(MONP_COVERAGE "Count which lines and branches run" OFF)

add_compile_options(-Wall -Wextra -Wshadow -Wconversion -Werror)
# g++ 12 believes that concatenated strings overlap. What runs in production has none of them and keeps the warning.
add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
# Paths in log lines and in debug data do not tell where the build directory was.
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
# Symbols are resolved at the start: doing it at the first call takes locks, which a signal handler cannot afford.
add_link_options(LINKER:--as-needed LINKER:-z,defs LINKER:-z,now)

if(MONP_SANITIZE)
    add_compile_options(-fsanitize=${MONP_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -O1)
    add_link_options(-fsanitize=${MONP_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # The instrumentation hides initialisations from this one warning; the plain builds check it.
        add_compile_options(-Wno-maybe-uninitialized)
    endif()
elseif(MONP_COVERAGE)
    # Counters of one file are changed by several threads and processes at once.
    add_compile_options(--coverage -fprofile-update=atomic -O0)
    add_link_options(--coverage)
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 -fstack-protector-strong -fstack-clash-protection
        -fcf-protection=full)
    add_link_options(LINKER:-z,relro LINKER:-z,noexecstack)
endif()

# For what runs in production: no exceptions, and none of the C++ runtime mapped into a process that lives for years.
add_library(monp_lean INTERFACE)
target_compile_options(monp_lean INTERFACE -fno-exceptions -fno-rtti $<$<CXX_COMPILER_ID:GNU>:-Wrestrict>)
target_link_options(monp_lean INTERFACE -static-libstdc++ -static-libgcc)
