# The live-room benchmark runs the real fusion worker and senders on the simulated hall.
target_link_libraries(live_room_bench PRIVATE halden_bench_support nlohmann_json::nlohmann_json)
