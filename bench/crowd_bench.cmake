# The crowd benchmark associates with halden_calibration, and records scenes of the simulated
# room and calibrates the recordings through the fusion worker, as halden-cli does.
target_link_libraries(crowd_bench PRIVATE halden_calibration halden_bench_support)
