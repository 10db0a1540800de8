# msgpack-c through its C API (libmsgpackc), the baseline the postcard is
# measured against.
find_package(msgpack REQUIRED CONFIG)
target_link_libraries(${bench_target} PRIVATE msgpackc)
