# Deletes the records of earlier test runs.
file(GLOB_RECURSE counts ${BINARY_DIR}/*.gcda)
if(counts)
  file(REMOVE ${counts})
endif()
file(REMOVE_RECURSE ${BINARY_DIR}/reached_sites.txt ${BINARY_DIR}/coverage_library
  ${BINARY_DIR}/coverage_all)
file(MAKE_DIRECTORY ${BINARY_DIR}/coverage_library ${BINARY_DIR}/coverage_all)
