# The uncertainty benchmark records scenes of the simulated room and calibrates the
# recordings through the fusion worker, as halden-cli does.
target_sources(uncertainty_bench PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/replayed_walk.cpp)
target_link_libraries(uncertainty_bench PRIVATE halden_calibration halden_fusion halden_recording halden_workspace)
