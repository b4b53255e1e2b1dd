# The stall benchmark drives the real fusion worker on the simulated room, with a
# synthetic calibration store.
target_link_libraries(stall_bench PRIVATE halden_bench_support halden_testing)
