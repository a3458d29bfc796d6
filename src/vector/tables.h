// Constant tables of the vector family (generated: tools/gen_vector_tables.py).
#pragma once

#include <cstdint>

namespace nkp::vector_tables {

constexpr int kPow43Size = 8192;
constexpr int kPow34Steps = 256;
constexpr int kSpreadSteps = 256;

extern const float kPow43[kPow43Size];          // n^(4/3), nearest float
extern const uint32_t kPow43Q12[kPow43Size];    // floor(n^(4/3) * 4096)
extern const uint32_t kPow34Mantissa[kPow34Steps + 1];  // (1 + i/256)^(3/4), Q30
extern const uint32_t kPow2NegCoarse[kSpreadSteps];     // 2^(-i/256), Q30
extern const uint32_t kPow2NegFine[kSpreadSteps];       // 2^(-i/65536), Q30

}  // namespace nkp::vector_tables
