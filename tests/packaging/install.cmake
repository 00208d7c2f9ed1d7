# Installs the library into a prefix, moves the prefix to WORK_DIR/moved and looks at what is in it.
include("${CMAKE_CURRENT_LIST_DIR}/support.cmake")

set(prefix "${WORK_DIR}/installed")
set(moved "${WORK_DIR}/moved")
file(REMOVE_RECURSE "${prefix}" "${moved}")
if(NOT BUILT)
  set(BUILT "${WORK_DIR}/library")
  configure("${SOURCE_DIR}" "${BUILT}"
    -DBUILD_SHARED_LIBS=${SHARED} -DCLASTOOL_BUILD_TESTS=OFF -DCLASTOOL_BUILD_EXAMPLES=OFF)
  run("${CMAKE_COMMAND}" --build "${BUILT}")
endif()
run("${CMAKE_COMMAND}" --install "${BUILT}" --prefix "${prefix}")
file(RENAME "${prefix}" "${moved}")

# All headers of the library but the private ones, and nothing else, in the folders of the source tree.
file(GLOB_RECURSE headers RELATIVE "${SOURCE_DIR}"
  "${SOURCE_DIR}/clastool/*.h" "${SOURCE_DIR}/foundation/*.h" "${SOURCE_DIR}/numerics/*.h" "${SOURCE_DIR}/clss/*.h")
file(GLOB_RECURSE installed RELATIVE "${moved}/include/clastool" "${moved}/include/*")
file(STRINGS "${SOURCE_DIR}/cmake/private_headers.txt" private_headers)
list(REMOVE_ITEM headers ${private_headers})
list(FILTER headers EXCLUDE REGEX "^numerics/kernels/")
list(SORT headers)
list(SORT installed)
expect_equal("${headers}" "${installed}" "installed headers")

file(READ "${SOURCE_DIR}/LICENSE" expected_license)
file(READ "${moved}/share/doc/clastool/LICENSE" license)
expect_equal("${expected_license}" "${license}" "installed licence")

# No text in the tree names the place where it was built or first installed.
file(GLOB_RECURSE texts "${moved}/*.cmake" "${moved}/*.pc")
list(LENGTH texts count)
if(count LESS 5)
  message(FATAL_ERROR "package files are missing; found: ${texts}")
endif()
foreach(text IN LISTS texts)
  file(READ "${text}" content)
  foreach(place IN ITEMS "${prefix}" "${SOURCE_DIR}" "${BUILT}")
    string(FIND "${content}" "${place}" position)
    expect_equal("-1" "${position}" "place of ${place} in ${text}")
  endforeach()
endforeach()
