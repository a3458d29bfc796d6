# FFTW (single precision) and FFmpeg's libavutil transforms as peers.
nkpac_bench_peer(nkpac_${name} fftw3f NKPAC_BENCH_FFTW)
nkpac_bench_peer(nkpac_${name} libavutil NKPAC_BENCH_AVUTIL)
