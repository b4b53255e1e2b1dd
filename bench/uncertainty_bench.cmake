# The uncertainty benchmark calibrates with halden_calibration on the simulated rooms of halden_pyra.
target_link_libraries(uncertainty_bench PRIVATE halden_calibration)
