# The crowd benchmark associates and solves with halden_calibration on the simulated room of halden_pyra.
target_link_libraries(crowd_bench PRIVATE halden_calibration)
