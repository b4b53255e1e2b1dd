# The stall benchmark drives the real fusion worker on the simulated room, with
# synthetic calibration frames from the fusion tests' generator.
target_sources(stall_bench PRIVATE ${PROJECT_SOURCE_DIR}/tests/fusion/synthetic_store.cpp)
target_link_libraries(stall_bench PRIVATE halden_fusion halden_workspace)
