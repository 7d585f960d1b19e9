# What the targets of this project have in common.

# On the device, small code beats unrolled loops.
foreach(language C CXX)
  string(REPLACE "-O3" "-O2" CMAKE_${language}_FLAGS_RELEASE "${CMAKE_${language}_FLAGS_RELEASE}")
endforeach()

# Warnings for every target.
function(tarvio_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
  if(TARVIO_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# Sanitizers for a target that runs as part of the system under test. The sandbox stays without them:
# it sets namespaces up with bare system calls.
function(tarvio_sanitize target)
  if(NOT TARVIO_SANITIZE)
    return()
  endif()
  # These checks need the type information that the library is built without.
  set(flags -fsanitize=${TARVIO_SANITIZE} -fno-sanitize-recover=all -fno-sanitize=vptr)
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    list(APPEND flags -fno-sanitize=function)
  endif()
  target_compile_options(${target} PRIVATE ${flags} -fno-omit-frame-pointer)
  target_link_options(${target} PRIVATE ${flags})
endfunction()

# C++ that needs nothing but libc at run time: no exceptions, no type information, linked as C so that
# the C++ run-time library stays away. The calling directory must also empty
# CMAKE_CXX_IMPLICIT_LINK_LIBRARIES, or CMake puts that library back on the command line.
function(tarvio_freestanding_cxx target)
  target_compile_options(
    ${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
endfunction()

# A program with its own C++ run-time library, which the device does not have. (A sanitizer needs the shared one.)
function(tarvio_static_cxx target)
  if(NOT TARVIO_SANITIZE)
    target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc)
  endif()
endfunction()

# The helpers in src/base, which the library and the programs share. Each target compiles them with its
# own settings: with exceptions or without.
function(tarvio_base target)
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/base/*.cpp)
  target_sources(${target} PRIVATE ${sources})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src)
endfunction()

# What the programs share: the files under /run.
function(tarvio_runtime target)
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/programs/runtime/*.cpp)
  target_sources(${target} PRIVATE ${sources})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/programs)
endfunction()

# Installed programs find the library relative to their own place, wherever that is.
file(RELATIVE_PATH libdir_from_bindir "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")

# Makes errors harder to exploit. Sanitizers find the same and more, and do not know the checked functions of libc;
# these need the optimiser.
function(tarvio_harden target)
  target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,-z,text)
  if(NOT TARVIO_SANITIZE)
    target_compile_options(
      ${target} PRIVATE -fstack-protector-strong
                        $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>
                        # It comes with the checks, and gcc, unlike clang, does not take (void) for an answer.
                        $<$<C_COMPILER_ID:GNU>:-Wno-unused-result>)
  endif()
endfunction()

# Settings of everything that ships.
function(tarvio_shipped target)
  tarvio_warnings(${target})
  tarvio_sanitize(${target})
  tarvio_harden(${target})
  # Files and directories are 64-bit on the 32-bit device as well.
  target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)
  target_compile_options(${target} PRIVATE -ffunction-sections -fdata-sections)
  target_link_options(${target} PRIVATE -Wl,--gc-sections)
  set_target_properties(
    ${target} PROPERTIES LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}"
                         RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}")
  get_target_property(type ${target} TYPE)
  if(type STREQUAL EXECUTABLE)
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${libdir_from_bindir}")
  endif()
endfunction()
