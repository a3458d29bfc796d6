// What one call of an export leaves behind, for comparing the two table
// entries of a two-path export (see tests/paths/both_paths_test.cpp).
#pragma once

#include "frame/exports.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace nkptest {

// The status and the bytes of everything the call may have written
// (outputs, cursors, objects), in the order the provider adds them.
struct Outcome {
    nkpStatus status = 0;
    std::vector<uint8_t> bytes;
    Outcome& add(const void* p, size_t n) {
        const auto* b = static_cast<const uint8_t*>(p);
        bytes.insert(bytes.end(), b, b + n);
        return *this;
    }
};

// run(path) makes the call through nkpt_<export>[path] on fresh copies of
// the same inputs; both paths must leave the same outcome, bit for bit.
template <class Run>
void expect_same_on_both_paths(Run run, const std::string& what) {
    const Outcome a = run(0), b = run(1);
    EXPECT_EQ(a.status, b.status) << what;
    EXPECT_TRUE(a.bytes == b.bytes) << what << ": the two code paths wrote different bytes";
}

}  // namespace nkptest
