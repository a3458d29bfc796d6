// The tables that transforms compute at Init are the same bits on every
// platform: a 64-bit FNV-1a hash over each one is pinned here, so the same
// program run on Windows proves its tables equal Linux's.
#include "nkpac.h"
#include "transform/engine.h"
#include "transform/mdct_common.h"

#include <gtest/gtest.h>

namespace {

using namespace nkp::fft;

uint64_t fnv1a(const void* data, size_t bytes, uint64_t h = 0xcbf29ce484222325u) {
    const auto* p = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < bytes; ++i) h = (h ^ p[i]) * 0x100000001b3u;
    return h;
}

// Floats of the per-pass twiddles of a block-split plan: one radix-2 pass
// for odd orders (L/2 complex values), then radix-4 passes of 3m complex
// values for m = L/4 (even) or L/8 (odd) down to 4.
uint64_t fft_hash(int order) {
    FftSpecComplex32f* s = nullptr;
    EXPECT_EQ(fftCreateComplex32f(&s, order, kNoDivByAny, 0), nkpStatusOk);
    const size_t L = size_t{1} << order;
    size_t floats = 0, m = L / 4;
    if (order & 1) floats += L, m = L / 8;
    for (; m >= 4; m /= 4) floats += 6 * m;
    const uint64_t h = s->route != Route::Large
                           ? fnv1a(s->pTwiddle, sizeof(float) * floats)
                           : fnv1a(s->pCoarse, sizeof(float) * (size_t{2} << s->order1),
                                   fnv1a(s->pFine, sizeof(float) * (size_t{2} << s->order2)));
    fftDestroyComplex32f(s);
    return h;
}

// Power-of-two lengths hold N complex rotations, lengths below 36 the N x N
// cosine matrix, others 4N cosines.
uint64_t dct_hash(int len) {
    DctInvSpec32f* s = nullptr;
    EXPECT_EQ(dctInvCreate32f(&s, len, 0), nkpStatusOk);
    const size_t floats = (len & (len - 1)) == 0 ? 2 * size_t(len) : len < 36 ? size_t(len) * len : 4 * size_t(len);
    const uint64_t h = fnv1a(s->table, sizeof(float) * floats);
    dctInvDestroy32f(s);
    return h;
}

template <class Spec>
uint64_t mdct_hash(nkpStatus (*alloc)(Spec**, int), nkpStatus (*release)(Spec*), int len, size_t entry_bytes) {
    Spec* s = nullptr;
    EXPECT_EQ(alloc(&s, len), nkpStatusOk);
    const auto* spec = reinterpret_cast<const nkp::mdct::MdctSpec*>(s);
    const uint64_t h = fnv1a(spec->pTwiddle, entry_bytes * size_t(nkp::mdct::table_entries(len)));
    release(s);
    return h;
}

TEST(InitTables, IdenticalOnEveryPlatform) {
    const struct {
        const char* name;
        uint64_t got, expected;
    } rows[] = {
        {"fft order 11 twiddles", fft_hash(11), 0x4bca5a9fd0bb4085u},
        {"fft order 12 twiddles", fft_hash(12), 0x36494699316964bdu},
        {"fft order 13 twiddles", fft_hash(13), 0x7d49953ab612c555u},
        {"fft order 16 fine and coarse", fft_hash(16), 0xd608911263ac387u},
        {"fft order 21 fine and coarse", fft_hash(21), 0x440370a7ae942534u},
        {"dct N=256 rotations", dct_hash(256), 0x1c0fd01c22c544b4u},
        {"dct N=4096 rotations", dct_hash(4096), 0x347eb6d7c0a11098u},
        {"dct N=30 matrix", dct_hash(30), 0x8df9503cab840fb9u},
        {"dct N=100 cosines", dct_hash(100), 0xf4be1bfe7dbc0815u},
        {"mdct forward N=36", mdct_hash(nkpsMDCTFwdInitAlloc_32f, nkpsMDCTFwdFree_32f, 36, 4), 0xbca54def5c28078fu},
        {"mdct forward N=12", mdct_hash(nkpsMDCTFwdInitAlloc_32f, nkpsMDCTFwdFree_32f, 12, 4), 0x71ab690e8b3f94b3u},
        {"mdct forward N=2048", mdct_hash(nkpsMDCTFwdInitAlloc_32f, nkpsMDCTFwdFree_32f, 2048, 4), 0x47233f6df4d27db4u},
        {"mdct inverse N=2048", mdct_hash(nkpsMDCTInvInitAlloc_32f, nkpsMDCTInvFree_32f, 2048, 4), 0x424dcc65db7695c7u},
        {"mdct forward 16-bit N=2048", mdct_hash(nkpsMDCTFwdInitAlloc_16s, nkpsMDCTFwdFree_16s, 2048, 2),
         0x98be87174fb392e8u},
    };
    for (const auto& r : rows) EXPECT_EQ(r.got, r.expected) << r.name << ": 0x" << std::hex << r.got;
}

}  // namespace
