# The real host libraries instead of the stand-ins: headers in include/, import libraries in lib/.
foreach(library qmx qmxcam Arbor dns_sd)
  find_library(KORU_HOST_${library} NAMES ${library} PATHS ${KORU_HOST_SDK}/lib
               NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  add_library(${library} INTERFACE)
  target_include_directories(${library} INTERFACE ${KORU_HOST_SDK}/include)
  target_link_libraries(${library} INTERFACE ${KORU_HOST_${library}})
endforeach()
