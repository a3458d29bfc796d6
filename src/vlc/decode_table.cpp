// Decoder tables: code-book checks, the object size, and building the
// multi-level lookup table (layout in decode_core.h). Two-path source: built
// once per code path into nkp::NKP_PATH_NS; both build the same bytes.
#include "frame/exports.h"
#include "vlc/decode_core.h"

#include <cstring>

namespace nkp::NKP_PATH_NS {
namespace {

using vlc::DecodeSpec;
using vlc::kDecodeLife;
using vlc::kDecodeTag;

constexpr int64_t kMaxObjectBytes = 0x7FFFFFFF;

// Everything the size and the build need to know about a code book.
struct Plan {
    int32_t max_length = 0;  // L
    int32_t levels = 0;
    int32_t width[32] = {};  // used widths, the last one cut
    int32_t depth[33] = {};  // depth[i]: code bits above level i
    int64_t min_value = 0, max_value = 0, max_magnitude = 0;
    int64_t entries = 0;     // table entries, headers included
    int32_t entry_bits = 0;
    int32_t length_bits = 0;
    int64_t size = 0;
};

uint32_t masked_code(const nkpsVLCCodeEntry_32s& e) {
    const uint32_t code = static_cast<uint32_t>(e.code);
    return e.length >= 32 ? code : code & ((1u << e.length) - 1u);
}

// The lengths, the values' range and the levels: nkpStatusVlcCodeLength for
// a code length outside 1..32 (an empty book has longest length 0) or widths
// that do not reach the longest code.
nkpStatus check_book(const nkpsVLCCodeEntry_32s* book, int count, const nkp32s* widths, int width_count,
                     Plan& plan) {
    int32_t max_length = 0;
    bool short_code = false;
    plan.min_value = count > 0 ? book[0].value : 0;
    plan.max_value = plan.min_value;
    for (int i = 0; i < count; ++i) {
        const nkpsVLCCodeEntry_32s& e = book[i];
        if (e.length > max_length) max_length = e.length;
        if (e.length < 1) short_code = true;
        const int64_t v = e.value;
        if (v < plan.min_value) plan.min_value = v;
        if (v > plan.max_value) plan.max_value = v;
        const int64_t m = v < 0 ? -v : v;
        if (m > plan.max_magnitude) plan.max_magnitude = m;
    }
    if (max_length < 1 || max_length > 32 || short_code) return nkpStatusVlcCodeLength;

    int32_t sum = 0;
    for (int i = 0; i < width_count && sum < max_length; ++i) {
        if (widths[i] < 1) return nkpStatusVlcCodeLength;
        const int32_t w = widths[i] < max_length - sum ? widths[i] : max_length - sum;
        plan.width[plan.levels] = w;
        plan.depth[plan.levels] = sum;
        ++plan.levels;
        sum += w;
    }
    if (sum < max_length) return nkpStatusVlcCodeLength;
    plan.depth[plan.levels] = sum;
    plan.max_length = max_length;
    return nkpStatusOk;
}

// The number of distinct `depth`-bit prefixes among the codes longer than
// `depth` bits: one lower-level table each. Shallow prefixes are marked in a
// bitmap; deeper ones are compared with the earlier entries.
int64_t count_prefixes(const nkpsVLCCodeEntry_32s* book, int count, int32_t depth) {
    auto prefix = [&](int i) { return masked_code(book[i]) >> (book[i].length - depth); };
    int64_t distinct = 0;
    if (depth <= 16) {
        uint64_t seen[1024];
        std::memset(seen, 0, ((size_t{1} << depth) + 63) / 64 * sizeof(uint64_t));
        for (int i = 0; i < count; ++i) {
            if (book[i].length <= depth) continue;
            const uint32_t p = prefix(i);
            const uint64_t bit = uint64_t{1} << (p & 63);
            if (!(seen[p >> 6] & bit)) {
                seen[p >> 6] |= bit;
                ++distinct;
            }
        }
        return distinct;
    }
    for (int i = 0; i < count; ++i) {
        if (book[i].length <= depth) continue;
        const uint32_t p = prefix(i);
        bool earlier = false;
        for (int j = 0; j < i && !earlier; ++j) earlier = book[j].length > depth && prefix(j) == p;
        if (!earlier) ++distinct;
    }
    return distinct;
}

int32_t bits_for(int64_t x) {  // smallest k with 2^k >= x (x >= 1)
    int32_t k = 0;
    while ((int64_t{1} << k) < x) ++k;
    return k;
}

// Table entries, entry width and object size: nkpStatusOutOfRange when the
// object would not fit in 2^31 - 1 bytes.
nkpStatus measure(const nkpsVLCCodeEntry_32s* book, int count, Plan& plan) {
    int64_t entries = (int64_t{1} << plan.width[0]) + 1;
    int32_t widest = plan.width[0];
    for (int level = 1; level < plan.levels && entries <= kMaxObjectBytes; ++level) {
        const int64_t tables = count_prefixes(book, count, plan.depth[level]);
        entries += tables * ((int64_t{1} << plan.width[level]) + 1);
        if (plan.width[level] > widest) widest = plan.width[level];
    }
    if (entries > kMaxObjectBytes) return nkpStatusOutOfRange;

    const int32_t value_bits = plan.max_magnitude <= 1 ? 0 : bits_for(plan.max_magnitude);
    const int32_t length_bits = bits_for(int64_t{widest} + 1);  // 2^k > widest
    const int32_t index_bits = bits_for(entries + 2);            // 2^k - 1 >= entries + 1
    const int32_t need = value_bits + length_bits + 2 > index_bits + 1 ? value_bits + length_bits + 2 : index_bits + 1;
    const int32_t entry_bits = need < 9 ? 8 : need < 17 ? 16 : 32;
    const int64_t size = entries * (entry_bits / 8) + 160;
    if (size > kMaxObjectBytes) return nkpStatusOutOfRange;
    plan.entries = entries;
    plan.entry_bits = entry_bits;
    plan.length_bits = length_bits;
    plan.size = size;
    return nkpStatusOk;
}

nkpStatus plan_book(const nkpsVLCCodeEntry_32s* book, int count, const nkp32s* widths, int width_count,
                    Plan& plan) {
    const nkpStatus status = check_book(book, count, widths, width_count, plan);
    return status != nkpStatusOk ? status : measure(book, count, plan);
}

// Fills the table: every entry walks (and where needed creates) its lower
// levels, then fills the slots of its last level that share its bits. A
// link is never replaced by a leaf; among leaves the later entry wins.
// Entries of value `big` (plain objects whose value field is one bit short
// for it; 0: none) link to a marker header instead: up to two, one per own
// length, in the two entries after the counted ones.
template <class E>
void fill_table(E* table, const nkpsVLCCodeEntry_32s* book, int count, const Plan& plan, int64_t big) {
    const uint32_t counted = static_cast<uint32_t>(plan.entries);
    std::memset(table, 0, static_cast<size_t>(counted) * sizeof(E));
    auto is_link = [counted](E e) { return e != 0 && !(e & 1) && (static_cast<uint32_t>(e) >> 1) < counted; };
    table[0] = static_cast<E>(plan.width[0]);
    uint32_t next_table = (1u << plan.width[0]) + 1;
    uint32_t markers = 0;
    const int value_shift = plan.length_bits + 1;
    for (int i = 0; i < count; ++i) {
        const nkpsVLCCodeEntry_32s& entry = book[i];
        const int32_t length = entry.length;
        const uint32_t code = masked_code(entry);
        uint32_t header = 0;
        int level = 0;
        while (length > plan.depth[level + 1]) {
            const uint32_t slot =
                (code >> (length - plan.depth[level + 1])) & ((1u << plan.width[level]) - 1u);
            E& e = table[header + 1 + slot];
            if (is_link(e)) {
                header = static_cast<uint32_t>(e) >> 1;
            } else {
                table[next_table] = static_cast<E>(plan.width[level + 1]);
                e = static_cast<E>(next_table << 1);
                header = next_table;
                next_table += (1u << plan.width[level + 1]) + 1;
            }
            ++level;
        }
        const uint32_t own = static_cast<uint32_t>(length - plan.depth[level]);
        const uint32_t spare = static_cast<uint32_t>(plan.width[level]) - own;
        const uint32_t own_bits = own >= 32 ? code : code & ((1u << own) - 1u);
        E leaf = static_cast<E>((static_cast<uint32_t>(entry.value) << value_shift) | (own << 1) | 1u);
        if (big != 0 && entry.value == big) {
            uint32_t m = 0;
            while (m < markers && table[counted + m] != static_cast<E>(vlc::kMarker + own)) ++m;
            if (m == markers && markers < 2) table[counted + markers++] = static_cast<E>(vlc::kMarker + own);
            if (m < markers) leaf = static_cast<E>((counted + m) << 1);
        }
        E* slots = table + header + 1 + (static_cast<uint64_t>(own_bits) << spare);
        for (uint64_t s = 0, n = uint64_t{1} << spare; s < n; ++s) {
            if (is_link(slots[s])) continue;
            slots[s] = leaf;
        }
    }
}

// Builds the object in the buffer from a checked plan.
void build(void* buffer, const nkpsVLCCodeEntry_32s* book, int count, const Plan& plan, int32_t elements,
           int32_t element_bits) {
    DecodeSpec* spec = object_in<DecodeSpec, kDecodeLife.align>(buffer);
    std::memset(spec, 0, sizeof(DecodeSpec));
    uint8_t* table = reinterpret_cast<uint8_t*>(spec) + vlc::kTableOffset;

    // Plain values are sign-extended from the value field. A field of k + 1
    // bits holds -2^k but not +2^k, which then goes behind a marker.
    int64_t big = 0;
    const int32_t field_bits = plan.entry_bits - plan.length_bits - 1;
    if (elements == 0 && plan.max_value == (int64_t{1} << (field_bits - 1))) big = plan.max_value;

    if (plan.entry_bits == 8)
        fill_table(reinterpret_cast<uint8_t*>(table), book, count, plan, big);
    else if (plan.entry_bits == 16)
        fill_table(reinterpret_cast<uint16_t*>(table), book, count, plan, big);
    else
        fill_table(reinterpret_cast<uint32_t*>(table), book, count, plan, big);

    spec->allocated = 0;
    spec->maxCodeLength = plan.max_length;
    spec->rootWidth = plan.width[0];
    spec->table = table;
    spec->entryBits = plan.entry_bits;
    spec->lengthBits = plan.length_bits;
    spec->tupleElements = elements;
    spec->tupleBits = element_bits;
    spec->bigValue = static_cast<int32_t>(big);
    spec->tag = kDecodeTag;
}

// The tuple family's checks, in their deliberate order. `size` (GetSize
// only) receives the size before the last check.
nkpStatus plan_tuple(const nkpsVLCCodeEntry_32s* book, int count, const nkp32s* widths, int width_count,
                     int elements, int element_bits, Plan& plan, nkp32s* size) {
    const nkpStatus held = check_book(book, count, widths, width_count, plan);
    if (elements < 1 || element_bits < 1) return nkpStatusOutOfRange;
    if (held != nkpStatusOk) return held;
    const nkpStatus status = measure(book, count, plan);
    if (status != nkpStatusOk) return status;
    if (size) *size = static_cast<nkp32s>(plan.size);
    if (int64_t{elements} * element_bits + plan.length_bits + 1 > 32) return nkpStatusOutOfRange;
    return nkpStatusOk;
}

}  // namespace

nkpStatus nkpsVLCDecodeGetSize_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                   const nkp32s* pSubTablesSizes, int numSubTables, nkp32s* pSize) {
    if (!pInputTable || !pSubTablesSizes || !pSize) return nkpStatusNullPointer;
    Plan plan;
    const nkpStatus status = plan_book(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, plan);
    if (status != nkpStatusOk) return status;
    *pSize = static_cast<nkp32s>(plan.size);
    return nkpStatusOk;
}

nkpStatus nkpsVLCDecodeInit_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                const nkp32s* pSubTablesSizes, int numSubTables, nkpsVLCDecodeSpec_32s* pVLCSpec) {
    if (!pInputTable || !pSubTablesSizes || !pVLCSpec) return nkpStatusNullPointer;
    Plan plan;
    const nkpStatus status = plan_book(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, plan);
    if (status != nkpStatusOk) return status;
    build(pVLCSpec, pInputTable, inputTableSize, plan, 0, 0);
    return nkpStatusOk;
}

nkpStatus nkpsVLCDecodeInitAlloc_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                     const nkp32s* pSubTablesSizes, int numSubTables,
                                     nkpsVLCDecodeSpec_32s** ppVLCSpec) {
    return init_alloc<DecodeSpec, kDecodeLife>(
        ppVLCSpec,
        [&](int32_t* size) {
            return NKP_PATH_NS::nkpsVLCDecodeGetSize_32s(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, size);
        },
        [&](void* buffer) {
            return NKP_PATH_NS::nkpsVLCDecodeInit_32s(pInputTable, inputTableSize, pSubTablesSizes, numSubTables,
                                         static_cast<nkpsVLCDecodeSpec_32s*>(buffer));
        });
}

nkpStatus nkpsVLCDecodeFree_32s(nkpsVLCDecodeSpec_32s* pVLCSpec) {
    return free_object<DecodeSpec, kDecodeLife>(pVLCSpec, kDecodeTag);
}

nkpStatus nkpsVLCDecodeUTupleGetSize_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                         const nkp32s* pSubTablesSizes, int numSubTables, int numElements,
                                         int numValueBits, nkp32s* pSize) {
    if (!pInputTable || !pSubTablesSizes || !pSize) return nkpStatusNullPointer;
    Plan plan;
    return plan_tuple(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, numElements, numValueBits, plan,
                      pSize);
}

nkpStatus nkpsVLCDecodeUTupleInit_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                      const nkp32s* pSubTablesSizes, int numSubTables, int numElements,
                                      int numValueBits, nkpsVLCDecodeSpec_32s* pVLCSpec) {
    if (!pInputTable || !pSubTablesSizes || !pVLCSpec) return nkpStatusNullPointer;
    Plan plan;
    const nkpStatus status = plan_tuple(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, numElements,
                                        numValueBits, plan, nullptr);
    if (status != nkpStatusOk) return status;
    build(pVLCSpec, pInputTable, inputTableSize, plan, numElements, numValueBits);
    return nkpStatusOk;
}

nkpStatus nkpsVLCDecodeUTupleInitAlloc_32s(const nkpsVLCCodeEntry_32s* pInputTable, int inputTableSize,
                                           const nkp32s* pSubTablesSizes, int numSubTables, int numElements,
                                           int numValueBits, nkpsVLCDecodeSpec_32s** ppVLCSpec) {
    return init_alloc<DecodeSpec, kDecodeLife>(
        ppVLCSpec,
        [&](int32_t* size) {
            return NKP_PATH_NS::nkpsVLCDecodeUTupleGetSize_32s(pInputTable, inputTableSize, pSubTablesSizes, numSubTables,
                                                  numElements, numValueBits, size);
        },
        [&](void* buffer) {
            return NKP_PATH_NS::nkpsVLCDecodeUTupleInit_32s(pInputTable, inputTableSize, pSubTablesSizes, numSubTables,
                                               numElements, numValueBits,
                                               static_cast<nkpsVLCDecodeSpec_32s*>(buffer));
        });
}

// One Free for both families.
nkpStatus nkpsVLCDecodeUTupleFree_32s(nkpsVLCDecodeSpec_32s* pVLCSpec) { return NKP_PATH_NS::nkpsVLCDecodeFree_32s(pVLCSpec); }

}  // namespace nkp::NKP_PATH_NS
