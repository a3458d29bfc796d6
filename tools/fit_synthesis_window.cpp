// Recovers the polyphase synthesis window from the Layer III compliance
// streams: each stream is decoded up to the subband samples with nkpdec's
// decoding loop, the 64-value V vectors are formed in double precision, and
// the 512 window weights are fitted by least squares to the streams'
// reference PCM (one 16-unknown system per output phase; clipped samples
// are left out). Prints src/mp3/synthesis_window.cpp. Samples at +-32767
// and beyond are taken as clipped by the reference decoder and skipped.
//
// Build and run (BUILD: a build directory of this project):
//   g++ -std=c++20 -O2 -I include -I examples/nkpdec tools/fit_synthesis_window.cpp \
//       examples/nkpdec/mp3_decoder.cpp -L BUILD -lnkpac -lnkpcore -o /tmp/fit
//   LD_LIBRARY_PATH=BUILD:BUILD/core /tmp/fit ../shared/conformance/mp3 > src/mp3/synthesis_window.cpp
#include "mp3_decoder.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

// One least-squares problem per output phase, kept as the triangular
// factor R and Q^T b of a Givens QR update (the normal equations lose too
// much precision: neighbouring V slots are strongly correlated).
struct Fit {
    double r[32][16][16] = {};
    double qtb[32][16] = {};
    long rows = 0;

    void add(int j, double* f, double y) {
        double (&R)[16][16] = r[j];
        double* q = qtb[j];
        for (int c = 0; c < 16; ++c) {
            if (f[c] == 0) continue;
            const double h = std::hypot(R[c][c], f[c]);
            const double cs = R[c][c] / h, sn = f[c] / h;
            for (int k = c; k < 16; ++k) {
                const double a = R[c][k], b = f[k];
                R[c][k] = cs * a + sn * b;
                f[k] = cs * b - sn * a;
            }
            const double a = q[c];
            q[c] = cs * a + sn * y;
            y = cs * y - sn * a;
        }
    }
};

double kRidge = 1e-4;

struct Channel {
    double v[16][64] = {};
    int head = 0;
    long sample = 0;
};

struct Stream {
    Fit* fit;
    std::vector<int16_t> ref;
    int channels;
    long skip;  // decoder samples per channel before the reference starts
    Channel ch[2];
    double cosines[32][32];
};

void tap(int c, const nkp32s* sb, void* user) {
    Stream& s = *static_cast<Stream*>(user);
    Channel& ch = s.ch[c];
    for (int t = 0; t < 18; ++t) {
        double cm[33];
        for (int m = 0; m < 32; ++m) {
            double acc = 0;
            for (int k = 0; k < 32; ++k) acc += s.cosines[m][k] * (sb[32 * t + k] / 33554432.0);
            cm[m] = acc;
        }
        cm[32] = 0;
        ch.head = (ch.head + 15) & 15;
        double* v = ch.v[ch.head];
        for (int j = 0; j < 16; ++j) v[j] = cm[16 + j];
        for (int j = 16; j < 48; ++j) v[j] = -cm[48 - j];
        for (int j = 48; j < 64; ++j) v[j] = -cm[j - 48];
        for (int j = 0; j < 32; ++j, ++ch.sample) {
            const long at = ch.sample - s.skip;
            if (at < 0 || (at + 1) * s.channels > static_cast<long>(s.ref.size())) continue;
            const int target = s.ref[at * s.channels + c];
            if (target >= 32767 || target <= -32767) continue;  // clipped (either side)
            double f[16];
            for (int i = 0; i < 8; ++i) {
                f[2 * i] = ch.v[(ch.head + 2 * i) & 15][j];
                f[2 * i + 1] = ch.v[(ch.head + 2 * i + 1) & 15][32 + j];
            }
            s.fit->add(j, f, target);
            ++s.fit->rows;
        }
    }
}

class NullSink : public nkpdec::PcmSink {
public:
    void frame(const int16_t*, int, int, int) override {}
};

std::vector<uint8_t> load(const std::string& path) {
    std::vector<uint8_t> d;
    if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
        uint8_t buf[65536];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) d.insert(d.end(), buf, buf + n);
        std::fclose(f);
    }
    return d;
}

// Back substitution on R; unknowns whose V value is always zero (V[16])
// get zero.
void solve(const double R[16][16], const double* qtb, double* x) {
    double scale = 0;
    for (int c = 0; c < 16; ++c) scale = std::max(scale, std::fabs(R[c][c]));
    for (int c = 15; c >= 0; --c) {
        if (std::fabs(R[c][c]) <= 1e-12 * scale) {
            x[c] = 0;
            continue;
        }
        double s = qtb[c];
        for (int k = c + 1; k < 16; ++k) s -= R[c][k] * x[k];
        x[c] = s / R[c][c];
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 1;
    const std::string dir = argv[1];
    if (const char* r = std::getenv("FIT_RIDGE")) kRidge = std::atof(r);
    struct Item {
        const char* name;
        int channels;
        long skip;
    };
    // The mono streams with long, short and mixed blocks, scale-factor
    // selection and every Huffman table; the others check the result.
    const Item items[] = {{"l3-compl", 1, 0},   {"l3-si", 1, 0}, {"l3-si_block", 1, 0},
                          {"l3-si_huff", 1, 0}, {"l3-sin1k0db", 2, 2304}};
    static Fit fit;
    for (const Item& it : items) {
        if (argc > 2) {  // only the streams named after the directory
            bool wanted = false;
            for (int a = 2; a < argc; ++a) wanted |= std::string(argv[a]) == it.name;
            if (!wanted) continue;
        }
        const std::vector<uint8_t> bits = load(dir + "/" + it.name + ".bit");
        const std::vector<uint8_t> pcm = load(dir + "/" + it.name + ".pcm");
        if (bits.empty() || pcm.empty()) {
            std::fprintf(stderr, "missing %s\n", it.name);
            return 1;
        }
        auto* s = new Stream{};
        s->fit = &fit;
        s->channels = it.channels;
        s->skip = it.skip;
        s->ref.resize(pcm.size() / 2);
        for (size_t i = 0; i < s->ref.size(); ++i)
            s->ref[i] = static_cast<int16_t>(pcm[2 * i] | (pcm[2 * i + 1] << 8));
        for (int m = 0; m < 32; ++m)
            for (int k = 0; k < 32; ++k) s->cosines[m][k] = std::cos(m * (2 * k + 1) * M_PI / 64.0);
        nkpdec::Decoder dec;
        dec.set_subband_tap(tap, s);
        NullSink sink;
        dec.decode(bits.data(), bits.size(), sink);
        std::fprintf(stderr, "%s: %ld rows so far\n", it.name, fit.rows);
        delete s;
    }
    float w[512];
    for (int j = 0; j < 32; ++j) {
        double x[16];
        // A light ridge keeps directions the data hardly determine (strongly
        // correlated V slots) from taking huge cancelling weights.
        double top = 0;
        for (int c = 0; c < 16; ++c) top = std::max(top, std::fabs(fit.r[j][c][c]));
        for (int c = 0; c < 16; ++c) {
            double row[16] = {};
            row[c] = top * kRidge;
            fit.add(j, row, 0.0);
        }
        solve(fit.r[j], fit.qtb[j], x);
        for (int i = 0; i < 8; ++i) {
            w[64 * i + j] = static_cast<float>(x[2 * i] / 33554432.0);
            w[64 * i + 32 + j] = static_cast<float>(x[2 * i + 1] / 33554432.0);
        }
    }
    std::printf("// Made by tools/fit_synthesis_window.cpp from the Layer III compliance streams;\n");
    std::printf("// do not edit. Entry 64 i + j weighs V slot 2i (j < 32) or slot 2i + 1 (j >= 32),\n");
    std::printf("// scaled from subband samples at 2^25 to 16-bit PCM units.\n");
    std::printf("#include \"mp3/decoder_tables.h\"\n\nnamespace nkp::mp3 {\n\n");
    std::printf("alignas(16) const float kSynthesisWindow[512] = {\n");
    for (int i = 0; i < 512; i += 4)
        std::printf("    %.9ef, %.9ef, %.9ef, %.9ef,\n", w[i], w[i + 1], w[i + 2], w[i + 3]);
    std::printf("};\n\n}  // namespace nkp::mp3\n");
    return 0;
}
