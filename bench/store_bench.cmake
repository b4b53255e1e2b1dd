# The store benchmark walks the simulated room's people through halden_calibration's store.
target_link_libraries(store_bench PRIVATE halden_calibration halden_testing)
