# The replay benchmark records and replays through the real fusion worker on the
# simulated room's virtual clock.
target_link_libraries(replay_bench PRIVATE halden_bench_support)
