# The transport benchmark drives the library's frame codec and sockets directly.
target_include_directories(transport_bench PRIVATE ${PROJECT_SOURCE_DIR}/pyra/src)
