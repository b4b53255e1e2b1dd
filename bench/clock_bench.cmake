# The clock benchmark calibrates through the real fusion worker on the simulated room's
# virtual clock.
target_link_libraries(clock_bench PRIVATE halden_bench_support)
