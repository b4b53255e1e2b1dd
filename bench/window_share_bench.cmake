# Extra libraries of the main-window benchmark, which runs the real window under Xvfb.
target_link_libraries(window_share_bench PRIVATE halden_app)
