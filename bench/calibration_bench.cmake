# The calibration benchmark solves with halden_calibration; its accuracy run watches the simulated room of halden_pyra.
target_link_libraries(calibration_bench PRIVATE halden_calibration halden_testing)
