set(clastool_folders clastool foundation numerics numerics/kernels clss/clastool/clastool clss/clastool/bayes clss/model clss/clastool)
list(TRANSFORM clastool_folders APPEND "/*.cpp" OUTPUT_VARIABLE clastool_sources)
list(TRANSFORM clastool_folders APPEND "/*.h" OUTPUT_VARIABLE clastool_headers)
file(GLOB clastool_sources CONFIGURE_DEPENDS ${clastool_sources})
file(GLOB clastool_headers CONFIGURE_DEPENDS ${clastool_headers})
# Only .cpp files include the private ones and those of numerics/kernels.
file(STRINGS cmake/private_headers.txt clastool_private_headers)
list(TRANSFORM clastool_private_headers PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
list(REMOVE_ITEM clastool_headers ${clastool_private_headers})
list(FILTER clastool_headers EXCLUDE REGEX "/numerics/kernels/")

add_library(clastool)
add_library(clastool::clastool ALIAS clastool)

target_sources(clastool
  PRIVATE ${clastool_sources}
  PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}" FILES ${clastool_headers})

target_compile_features(clastool PUBLIC cxx_std_17)

# Before 1.0 every minor version may change the interface, so it takes part in the name of the shared object.
set_target_properties(clastool PROPERTIES
  CXX_EXTENSIONS OFF
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON
  # A plug-in or a Python module links the static library into a shared one.
  POSITION_INDEPENDENT_CODE ON
  VERSION "${PROJECT_VERSION}"
  SOVERSION "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}")

# foundation/tkExport.h reads these.
get_target_property(clastool_type clastool TYPE)
if(clastool_type STREQUAL "STATIC_LIBRARY")
  target_compile_definitions(clastool PUBLIC CLASTOOL_STATIC)
else()
  target_compile_definitions(clastool PRIVATE CLASTOOL_BUILDING)
endif()

# A multiplication fused with an addition rounds once instead of twice: with contraction, the bits of a result would
# depend on the processor and on the optimisation level.
if(MSVC)
  target_compile_options(clastool PRIVATE /fp:precise)
else()
  target_compile_options(clastool PRIVATE -ffp-contract=off)
endif()
