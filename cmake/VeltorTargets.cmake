# Settings that only our own targets use: whoever embeds the project keeps their own.

add_library(veltor_warnings INTERFACE)
# The presets make them errors (CMAKE_COMPILE_WARNING_AS_ERROR). A plain build goes through with a compiler that knows more.
target_compile_options(veltor_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
# GCC 12 sees an overlap in `"text" + std::string` that is not there (its bug 105651).
target_compile_options(
    veltor_warnings INTERFACE
                    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
# Classes with virtual functions and without a virtual destructor are part of the ABI; containers hold them by value.
target_compile_options(
    veltor_warnings INTERFACE $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wno-delete-non-abstract-non-virtual-dtor>)

add_library(veltor_options INTERFACE)
target_compile_features(veltor_options INTERFACE cxx_std_20 c_std_99)
# No build path reaches a binary or its debug information: two builds in different folders give the same bytes. The
# compiler runs in the top folder of the build, which need not be ours, and debug information names that folder itself.
target_compile_options(
    veltor_options
    INTERFACE "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=" "-ffile-prefix-map=${PROJECT_BINARY_DIR}/="
              "-ffile-prefix-map=${CMAKE_BINARY_DIR}=.")
if(VELTOR_SANITIZE)
    # Without the vptr check: it opens a pipe to look at memory, and some tests leave a process no file to open.
    target_compile_options(
        veltor_options INTERFACE -fsanitize=${VELTOR_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all
                                 -fno-omit-frame-pointer)
    target_link_options(veltor_options INTERFACE -fsanitize=${VELTOR_SANITIZE})
endif()
if(VELTOR_BUILD_FUZZ)
    # The fuzzer sees which parts of the library an input reaches; its main goes into the targets alone.
    target_compile_options(veltor_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Where the installed libraries find each other, and where programs find them. In the folders of the system the loader
# looks by itself, and distributions want nothing to be said. Anywhere else it is said relative to the file that says it,
# so that the installed tree can be moved, unless the libraries were given a place of their own. CMAKE_SKIP_INSTALL_RPATH
# leaves all of it out.
if(CMAKE_INSTALL_FULL_LIBDIR IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
    set(VELTOR_RELOCATABLE OFF)
    set(VELTOR_LIBRARY_RPATH "")
    set(VELTOR_PROGRAM_RPATH "")
elseif(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_BINDIR}")
    set(VELTOR_RELOCATABLE OFF)
    set(VELTOR_LIBRARY_RPATH "$ORIGIN")
    set(VELTOR_PROGRAM_RPATH "${CMAKE_INSTALL_FULL_LIBDIR}")
else()
    set(VELTOR_RELOCATABLE ON)
    set(VELTOR_LIBRARY_RPATH "$ORIGIN")
    file(RELATIVE_PATH VELTOR_PROGRAM_RPATH "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
    string(PREPEND VELTOR_PROGRAM_RPATH "$ORIGIN/")
endif()

# Gives what is installed its RPATH. In the build tree it has the same where the folders lie alike: each place costs the
# loader two dozen system calls, and an RPATH that is changed at the installation has an empty place at its end.
function(veltor_installed_rpath target rpath)
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "${rpath}")
    if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_SKIP_INSTALL_RPATH AND rpath MATCHES [[^\$ORIGIN(/\.\./lib)?$]])
        set_target_properties(${target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON)
    endif()
endfunction()

# Gives a target of ours the warnings, the options and hidden visibility.
function(veltor_own_target target)
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:veltor_warnings> $<BUILD_INTERFACE:veltor_options>)
    set_target_properties(
        ${target}
        PROPERTIES C_STANDARD 99
                   CXX_EXTENSIONS OFF
                   C_EXTENSIONS OFF
                   CXX_VISIBILITY_PRESET hidden
                   C_VISIBILITY_PRESET hidden
                   VISIBILITY_INLINES_HIDDEN ON
                   POSITION_INDEPENDENT_CODE ON
                   # The place of the build tree reaches no binary of it.
                   BUILD_RPATH_USE_ORIGIN ON)
    if(VELTOR_SANITIZE)
        # A program in C needs the C++ part of the sanitizers' runtime, too, for the libraries that it links.
        set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
    endif()
endfunction()

# Of all three libraries. It changes when a program that was linked with an older library could fail with this one.
set(VELTOR_SOVERSION 1)

# Limits what a shared library exports to its version script, and refuses undefined symbols.
function(veltor_export_list target mapFile)
    target_link_options(${target} PRIVATE "LINKER:--version-script=${mapFile}")
    if(NOT VELTOR_SANITIZE)
        target_link_options(${target} PRIVATE "LINKER:-z,defs")
    endif()
    set_target_properties(
        ${target}
        PROPERTIES LINK_DEPENDS "${mapFile}"
                   VERSION ${VELTOR_SOVERSION}.${PROJECT_VERSION}
                   SOVERSION ${VELTOR_SOVERSION})
endfunction()

# Headers that many sources read, read once: veltor_precompiled_headers(name header...) makes them, and a target takes
# them with veltor_precompile(target name). A source includes what it uses all the same: most builds go without.
function(veltor_precompiled_headers name)
    if(VELTOR_PRECOMPILE)
        file(CONFIGURE OUTPUT ${name}.cpp CONTENT "// Nothing but the precompiled headers.\n")
        add_library(${name} OBJECT "${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp")
        veltor_own_target(${name})
        target_precompile_headers(${name} PRIVATE ${ARGN})
    endif()
endfunction()

function(veltor_precompile target name)
    if(VELTOR_PRECOMPILE)
        target_precompile_headers(${target} REUSE_FROM ${name})
    endif()
endfunction()
