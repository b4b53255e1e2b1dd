# The accuracy benchmark records scenes of the simulated room and calibrates the recordings
# through the fusion worker, as halden-cli does.
target_link_libraries(accuracy_bench PRIVATE halden_bench_support)
