# Compiler options of our targets, and the exports of the plug-in.

# Warnings. Whether they are errors is the preset's choice (CMAKE_COMPILE_WARNING_AS_ERROR).
add_library(koru_warnings INTERFACE)
if(MSVC)
  target_compile_options(koru_warnings INTERFACE /W4 /permissive- /utf-8)
else()
  target_compile_options(koru_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Wcast-align -Wnon-virtual-dtor -Woverloaded-virtual)
endif()

# Further options of our targets; linking koru_warnings includes them.
add_library(koru_options INTERFACE)
target_link_libraries(koru_warnings INTERFACE koru_options)
if(NOT MSVC)
  # Debug information and __FILE__ name sources relative to the project, wherever it is built. With
  # link-time optimisation the linker writes the debug information.
  target_compile_options(koru_options INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
  target_link_options(koru_options INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
endif()
if(MSVC)
  # Control-flow guard and shadow stacks, and no time stamp in the file.
  target_compile_options(koru_options INTERFACE /guard:cf)
  target_link_options(koru_options INTERFACE /guard:cf /CETCOMPAT /Brepro)
elseif(WIN32)
  target_link_options(koru_options INTERFACE -Wl,--no-insert-timestamp)
endif()
if(WIN32)
  # Windows 10 is the first version with DNS-SD. The other two definitions suppress macros of the
  # system's headers.
  target_compile_definitions(koru_options
    INTERFACE _WIN32_WINNT=0x0A00 NOMINMAX WIN32_LEAN_AND_MEAN)
endif()
if(KORU_SANITIZE)
  target_compile_options(koru_options INTERFACE
    -fsanitize=${KORU_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_compile_definitions(koru_options INTERFACE KORU_SANITIZED)
  target_link_options(koru_options INTERFACE -fsanitize=${KORU_SANITIZE})
endif()
if(KORU_COVERAGE)
  target_compile_options(koru_options INTERFACE --coverage -fprofile-update=atomic) # for threads
  target_link_options(koru_options INTERFACE --coverage)
endif()

# Makes `target` export only the function `name`. Hidden visibility alone would still export
# templates of the standard library.
function(koru_export_only target name)
  if(WIN32)
    return() # a DLL exports only what is declared so
  endif()
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.version)
  file(CONFIGURE OUTPUT ${script} CONTENT "{ global: ${name}; local: *; };\n") # only if it differs
  target_link_options(${target} PRIVATE -Wl,--version-script=${script})
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${script})
  if(NOT KORU_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()
