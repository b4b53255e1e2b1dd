# The accuracy benchmark solves with halden_calibration against the simulated room of halden_pyra.
target_link_libraries(accuracy_bench PRIVATE halden_calibration halden_testing)
