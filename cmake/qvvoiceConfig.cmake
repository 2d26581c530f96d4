include(${CMAKE_CURRENT_LIST_DIR}/qvvoiceTargets.cmake)
