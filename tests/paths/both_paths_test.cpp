// Every export of the list (frame/export_list.inc) against its two-entry
// table: a single-implementation export puts one function behind both
// entries; a two-path export (NKP_EXPORT_DUAL) two, which must agree bit for
// bit on the same inputs.
//
// Adding a two-path export: its family's tests define, in
// tests/<family>/both_paths.cpp (compiled into this program), a provider
//     void both_paths_<export>();
// that makes random inputs, including the edge cases the export's code
// paths split on, and checks them with nkptest::expect_same_on_both_paths
// (tests/common/both_paths.h), comparing statuses, every output and every
// cursor of nkpt_<export>[0] and [1]. A two-path export without a provider
// does not link.
#include "frame/exports.h"

#include <gtest/gtest.h>

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
        EXPECT_EQ(row.entry0 != row.entry1, row.dual);
    }
}

}  // namespace

#define NKP_EXPORT(name)
#define NKP_EXPORT_DUAL(name) \
    void both_paths_##name(); \
    TEST(BothPaths, name) { both_paths_##name(); }
#include "frame/export_list.inc"
#undef NKP_EXPORT
#undef NKP_EXPORT_DUAL
