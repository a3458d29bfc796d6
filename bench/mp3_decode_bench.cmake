# nkpdec's decoding loop next to libmpg123 decoding the same stream.
target_link_libraries(nkpac_${name} PRIVATE nkpdec_loop)
nkpac_bench_peer(nkpac_${name} libmpg123 NKPAC_BENCH_MPG123)
