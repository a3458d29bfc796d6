# mpg123 (Debian libmpg123-dev) decodes the same stream in full, for scale.
nkpac_bench_peer(nkpac_${name} libmpg123 NKPAC_BENCH_MPG123)
