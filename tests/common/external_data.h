// Data a test needs from outside the repository (the MP3 compliance streams,
// the peer decoder mpg123). When it is missing the test skips, or fails where
// the build requires it (NKPAC_REQUIRE_EXTERNAL_DATA, as in CI). Data inside
// the repository is never optional: a test that misses it fails.
#pragma once

#include <gtest/gtest.h>

#define NKPT_NEED_EXTERNAL(present, what)                                 \
    do {                                                                  \
        if (!(present)) {                                                 \
            if (NKPAC_REQUIRE_EXTERNAL_DATA) FAIL() << (what) << " is missing"; \
            GTEST_SKIP() << (what) << " is missing";                      \
        }                                                                 \
    } while (0)
