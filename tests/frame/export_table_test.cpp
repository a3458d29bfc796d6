// Every export's two-entry table: single-implementation exports put the same
// function behind both entries, two-implementation exports two different
// ones, and no entry is empty.
#include "frame/exports.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct TableRow {
    const char* name;
    const void* entry0;
    const void* entry1;
    bool dual;
};

const TableRow kTables[] = {
#define NKP_EXPORT(name) {#name, reinterpret_cast<const void*>(nkpt_##name[0]), \
                          reinterpret_cast<const void*>(nkpt_##name[1]), false},
#define NKP_EXPORT_DUAL(name) {#name, reinterpret_cast<const void*>(nkpt_##name[0]), \
                               reinterpret_cast<const void*>(nkpt_##name[1]), true},
#include "frame/export_list.inc"
#undef NKP_EXPORT
#undef NKP_EXPORT_DUAL
};

TEST(ExportTables, EntriesFollowTheList) {
    for (const auto& row : kTables) {
        SCOPED_TRACE(row.name);
        EXPECT_NE(row.entry0, nullptr);
        EXPECT_NE(row.entry1, nullptr);
        if (row.dual) {
            EXPECT_NE(row.entry0, row.entry1);
        } else {
            EXPECT_EQ(row.entry0, row.entry1);
        }
    }
}

TEST(ExportTables, NamesFollowTheConvention) {
    for (const auto& row : kTables) {
        const std::string name = row.name;
        EXPECT_TRUE(name.rfind("nkps", 0) == 0 || name == "nkpacGetLibVersion") << name;
    }
}

}  // namespace
