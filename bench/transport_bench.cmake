# The transport benchmark drives the library's frame codec and sockets directly.
target_link_libraries(transport_bench PRIVATE halden_pyra_internals)
