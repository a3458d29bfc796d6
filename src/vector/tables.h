// Constant tables of the vector family (generated into generated/tables.cpp
// by tools/gen_vector_tables.py; x^(4/3) is the shared common/pow43.h).
#pragma once

#include <cstdint>

namespace nkp::vector_tables {

constexpr int kPow34Steps = 256;
constexpr int kSpreadSteps = 256;

extern const uint32_t kPow34Mantissa[kPow34Steps + 1];  // (1 + i/256)^(3/4), Q30
extern const uint32_t kPow2NegCoarse[kSpreadSteps];     // 2^(-i/256), Q30
extern const uint32_t kPow2NegFine[kSpreadSteps];       // 2^(-i/65536), Q30

}  // namespace nkp::vector_tables
