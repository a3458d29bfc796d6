// The version query's two entries: one record per code path, equal in
// everything but the path's code and name.
#include "common/both_paths.h"

#include <cstring>
#include <regex>

void both_paths_nkpacGetLibVersion() {
    const nkpLibraryVersion* a = nkpt_nkpacGetLibVersion[0]();
    const nkpLibraryVersion* b = nkpt_nkpacGetLibVersion[1]();
    ASSERT_NE(a, b);
    EXPECT_EQ(std::string(a->name).rfind("nkpAC SSSE3", 0), 0u);
    EXPECT_EQ(std::string(b->name).rfind("nkpAC ", 0), 0u);
    for (const nkpLibraryVersion* v : {a, b}) {
        // A two-letter code, zero-padded, that also ends the name in parentheses.
        const std::string code(v->targetCpu, strnlen(v->targetCpu, 4));
        ASSERT_EQ(code.size(), 2u);
        EXPECT_EQ(v->targetCpu[3], 0);
        const std::string name = v->name;
        EXPECT_EQ(name.substr(name.size() - 4), "(" + code + ")");
    }
    EXPECT_NE(std::memcmp(a->targetCpu, b->targetCpu, 4), 0);
    EXPECT_TRUE(a->major == b->major && a->minor == b->minor && a->majorBuild == b->majorBuild &&
                a->build == b->build && a->version == b->version && a->buildDate == b->buildDate);
    const std::string expect = std::to_string(a->major) + "." + std::to_string(a->minor) + "." +
                               std::to_string(a->majorBuild) + " (r" + std::to_string(a->build) + ")";
    EXPECT_EQ(std::string(a->version), expect);
    EXPECT_TRUE(std::regex_match(a->buildDate, std::regex("[A-Z][a-z]{2} [1-9][0-9]? [0-9]{4}"))) << a->buildDate;
}
