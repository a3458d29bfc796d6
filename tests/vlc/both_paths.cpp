// The VLC family's two-path exports, both table entries on the same inputs:
// the standard books, random complete and incomplete codes (plain and
// tuple) with random widths, and books the table builders refuse.
#include "code_books.h"
#include "common/both_paths.h"
#include "nkpcore.h"

#include <cstring>

using namespace vlctest;
using nkptest::Outcome;

namespace {

struct Case {
    Book book;
    std::vector<int32_t> widths;
};

const std::vector<Case>& cases() {
    static const std::vector<Case> all = [] {
        std::mt19937 rng(41);
        std::vector<Case> v;
        for (const Book& b : standard_books()) v.push_back({b, random_widths(rng, b.entries)});
        for (int i = 0; i < 60; ++i) {
            const Book b = random_book(rng, i);
            v.push_back({b, random_widths(rng, b.entries)});
        }
        // Refused: lengths 0 and 33, widths short of the longest code or with
        // a 0 before it, objects over 2^31 - 1 bytes, tuples too wide.
        v.push_back({{"length_0", {{1, 1, 1}, {2, 0, 0}}}, {2}});
        v.push_back({{"length_33", {{0, 0, 33}, {1, 1, 1}}, 1, 1}, {8}});
        v.push_back({{"short_widths", {{0, 0, 9}, {1, 1, 1}}}, {4, 4}});
        v.push_back({{"width_0", {{0, 0, 9}, {1, 1, 1}}, 2, 2}, {0, 9}});
        v.push_back({{"huge", {{INT32_MIN, 0, 31}, {INT32_MAX, 1, 1}}, 2, 3}, {31}});
        v.push_back({{"too_wide", {{0, 0, 1}, {1, 1, 1}}, 8, 4}, {1}});
        return v;
    }();
    return all;
}

// An object's bytes (its size less the alignment slack, from its aligned
// start); words of its header that point into it become offsets.
void add_object(Outcome& o, const void* buffer, nkp32s size) {
    const uintptr_t start = (reinterpret_cast<uintptr_t>(buffer) + 63) & ~uintptr_t{63};
    const auto* bytes = reinterpret_cast<const uint8_t*>(start);
    std::vector<uint8_t> copy(bytes, bytes + size - 63);
    for (size_t i = 0; i < 64; i += sizeof(uintptr_t)) {
        uintptr_t w;
        std::memcpy(&w, &copy[i], sizeof w);
        if (w - start < static_cast<uintptr_t>(size)) w -= start;
        std::memcpy(&copy[i], &w, sizeof w);
    }
    o.add(copy.data(), copy.size());
}

enum Kind { kPlain, kTuple, kEncoder };

// InitAlloc of the case's object, or (case null) Free of *object.
nkpStatus alloc_or_free(Kind k, int path, const Case* c, void** object) {
    auto* dec = reinterpret_cast<nkpsVLCDecodeSpec_32s**>(object);
    auto* enc = reinterpret_cast<nkpsVLCEncodeSpec_32s**>(object);
    if (!c)
        return k == kEncoder ? nkpt_nkpsVLCEncodeFree_32s[path](*enc)
               : k == kTuple ? nkpt_nkpsVLCDecodeUTupleFree_32s[path](*dec)
                             : nkpt_nkpsVLCDecodeFree_32s[path](*dec);
    const Entry* e = c->book.entries.data();
    const int n = static_cast<int>(c->book.entries.size()), nw = static_cast<int>(c->widths.size());
    return k == kEncoder ? nkpt_nkpsVLCEncodeInitAlloc_32s[path](e, n, enc)
           : k == kTuple ? nkpt_nkpsVLCDecodeUTupleInitAlloc_32s[path](e, n, c->widths.data(), nw, c->book.elements,
                                                                       c->book.element_bits, dec)
                         : nkpt_nkpsVLCDecodeInitAlloc_32s[path](e, n, c->widths.data(), nw, dec);
}

// The life cycle of one kind of object on every case: GetSize's and Init's
// statuses, the size and the object; Free twice on it (the tag stays), on
// null and on a foreign object; InitAlloc's status, its object released by
// Free with nothing left allocated. (A failing allocation: the shared life
// cycle's tests.)
void life_cycle_on_both_paths(Kind kind) {
    for (const Case& c : cases()) {
        if (kind == kTuple && !c.book.elements) continue;
        nkptest::expect_same_on_both_paths(
            [&](int path) {
                Outcome o;
                auto record = [&](const auto& obj) {
                    uint8_t zeros[128] = {};
                    void *foreign = zeros, *spec = obj.spec;
                    const nkpStatus s[5] = {obj.sized, obj.status, alloc_or_free(kind, path, nullptr, &spec),
                                            alloc_or_free(kind, path, nullptr, &spec),
                                            alloc_or_free(kind, path, nullptr, &foreign)};
                    o.add(s, sizeof s).add(&obj.size, sizeof obj.size);
                    if (obj.status != nkpStatusOk) return;
                    EXPECT_EQ(s[3], nkpStatusOk) << "Free keeps the tag";
                    add_object(o, obj.spec, obj.size);
                };
                if (kind == kEncoder)
                    record(Encoder(c.book.entries, 5, path));
                else
                    record(Decoder(kind == kTuple ? c.book : Book{c.book.name, c.book.entries}, c.widths, 5, path));
                const long live = nkpcoreLiveAllocations();
                void* object = nullptr;
                o.status = alloc_or_free(kind, path, &c, &object);
                if (object) EXPECT_EQ(alloc_or_free(kind, path, nullptr, &object), nkpStatusOk);
                EXPECT_EQ(nkpcoreLiveAllocations(), live);
                return o;
            },
            c.book.name);
    }
}

// Decoders read bits of varied density (uniform, or three ones or three
// zeros in four, so that long codes and patterns of no code come up) from a
// random byte address and offset; tuple decoders get plain objects too (they
// consume codes and write nothing). Encoders write values in and out of the
// book into random bytes, One at any offset (-12..40). Now and then a
// refusal: an offset outside 0..7, a count of 0, a foreign object.
enum Call { kOne, kBlock, kTupleOne, kTupleBlock, kEncodeOne, kEncodeBlock, kCount };
void calls_on_both_paths(Call call) {
    std::mt19937 rng(call);
    const bool tuple = call == kTupleOne || call == kTupleBlock, encoder = call >= kEncodeOne;
    const Form form = call == kOne || call == kTupleOne || call == kEncodeOne ? Form::One : Form::Block;
    for (const Case& c : cases()) {
        const Decoder d(tuple ? c.book : Book{c.book.name, c.book.entries}, c.widths);
        const Encoder e(c.book.entries);
        if ((encoder ? e.status : d.status) != nkpStatusOk) continue;
        for (int round = 0; round < 12; ++round) {
            std::vector<uint8_t> bytes(512), foreign(128);
            for (uint8_t& x : bytes) {
                const uint8_t u = static_cast<uint8_t>(rng()), w = static_cast<uint8_t>(rng());
                x = round % 3 == 0 ? u : round % 3 == 1 ? u & w : u | w;
            }
            std::vector<nkp16s> values(160, 0x5555);  // the encoders' input, the decoders' output
            for (int i = 0; i < 60; ++i) {
                const Entry& pick = c.book.entries[rng() % c.book.entries.size()];
                values[i] = static_cast<nkp16s>(rng() % 4 ? pick.value : static_cast<int32_t>(rng()));
            }
            const int count = round == 10 ? 0 : static_cast<int>(rng() % 40);
            const int offset = call == kEncodeOne ? static_cast<int>(rng() % 53) - 12
                               : round == 11      ? (rng() & 1 ? 8 : -1)
                                                  : static_cast<int>(rng() % 8);
            const size_t at = 8 + rng() % 4;
            void* object = round == 9 ? foreign.data() : encoder ? static_cast<void*>(e.spec) : d.spec;
            nkptest::expect_same_on_both_paths(
                [&](int path) {
                    std::vector<uint8_t> buf = bytes;
                    std::vector<nkp16s> v = values;
                    nkp8u* p = buf.data() + at;
                    int off = offset;
                    nkp32s bits = -1;
                    Outcome o;
                    o.status = encoder ? encode_call(path, form, v.data(), count, 0, &p, &off,
                                                     static_cast<nkpsVLCEncodeSpec_32s*>(object),
                                                     call == kCount ? &bits : nullptr)
                                       : decode_call(path, tuple, form, &p, &off, v.data(), count, 0,
                                                     static_cast<nkpsVLCDecodeSpec_32s*>(object));
                    const long cursor = (p - buf.data()) * 8 + off;
                    o.add(buf.data(), buf.size()).add(v.data(), v.size() * 2);
                    return o.add(&cursor, sizeof cursor).add(&bits, sizeof bits);
                },
                c.book.name + " round " + std::to_string(round));
        }
    }
}

}  // namespace

void both_paths_nkpsVLCDecodeGetSize_32s() { life_cycle_on_both_paths(kPlain); }
void both_paths_nkpsVLCDecodeInit_32s() { life_cycle_on_both_paths(kPlain); }
void both_paths_nkpsVLCDecodeInitAlloc_32s() { life_cycle_on_both_paths(kPlain); }
void both_paths_nkpsVLCDecodeFree_32s() { life_cycle_on_both_paths(kPlain); }
void both_paths_nkpsVLCDecodeUTupleGetSize_32s() { life_cycle_on_both_paths(kTuple); }
void both_paths_nkpsVLCDecodeUTupleInit_32s() { life_cycle_on_both_paths(kTuple); }
void both_paths_nkpsVLCDecodeUTupleInitAlloc_32s() { life_cycle_on_both_paths(kTuple); }
void both_paths_nkpsVLCDecodeUTupleFree_32s() { life_cycle_on_both_paths(kTuple); }
void both_paths_nkpsVLCEncodeGetSize_32s() { life_cycle_on_both_paths(kEncoder); }
void both_paths_nkpsVLCEncodeInit_32s() { life_cycle_on_both_paths(kEncoder); }
void both_paths_nkpsVLCEncodeInitAlloc_32s() { life_cycle_on_both_paths(kEncoder); }
void both_paths_nkpsVLCEncodeFree_32s() { life_cycle_on_both_paths(kEncoder); }
void both_paths_nkpsVLCDecodeOne_1u16s() { calls_on_both_paths(kOne); }
void both_paths_nkpsVLCDecodeBlock_1u16s() { calls_on_both_paths(kBlock); }
void both_paths_nkpsVLCDecodeUTupleOne_1u16s() { calls_on_both_paths(kTupleOne); }
void both_paths_nkpsVLCDecodeUTupleBlock_1u16s() { calls_on_both_paths(kTupleBlock); }
void both_paths_nkpsVLCEncodeOne_16s1u() { calls_on_both_paths(kEncodeOne); }
void both_paths_nkpsVLCEncodeBlock_16s1u() { calls_on_both_paths(kEncodeBlock); }
void both_paths_nkpsVLCCountBits_16s32s() { calls_on_both_paths(kCount); }
