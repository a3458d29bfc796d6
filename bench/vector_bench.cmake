# mpg123's syn123 as a peer for interleaving and float-to-16-bit conversion.
nkpac_bench_peer(nkpac_${name} libsyn123 NKPAC_BENCH_SYN123)
