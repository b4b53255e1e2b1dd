# Extra libraries of the viewer benchmark, which draws with the real widget under Xvfb
# (software GL).
target_link_libraries(viewer_bench PRIVATE halden_viewer)
