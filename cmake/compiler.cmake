# Compiler settings shared by all targets, and the export rule of the plug-in.

# What only our own code is held to: warnings. Whether they are errors is the preset's choice
# (CMAKE_COMPILE_WARNING_AS_ERROR).
add_library(koru_warnings INTERFACE)
if(MSVC)
  target_compile_options(koru_warnings INTERFACE /W4 /permissive- /utf-8)
else()
  target_compile_options(koru_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Wcast-align -Wnon-virtual-dtor -Woverloaded-virtual)
endif()

if(WIN32)
  # Windows 10, the first with a DNS-SD browse of its own; and as few of the system's macros as it
  # lets one have.
  add_compile_definitions(_WIN32_WINNT=0x0A00 NOMINMAX WIN32_LEAN_AND_MEAN)
endif()
if(KORU_SANITIZE)
  add_compile_options(-fsanitize=${KORU_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${KORU_SANITIZE})
  add_compile_definitions(KORU_SANITIZED)
endif()
if(KORU_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic) # threads count, too
  add_link_options(--coverage)
endif()

# Lets `target` export the one function `name`: hidden visibility alone still lets the standard
# library's templates out.
function(koru_export_only target name)
  if(WIN32)
    return() # a DLL exports what is declared so and nothing else
  endif()
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.version)
  file(WRITE ${script} "{ global: ${name}; local: *; };\n")
  target_link_options(${target} PRIVATE -Wl,--version-script=${script})
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${script})
  if(NOT KORU_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()
