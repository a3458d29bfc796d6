// The two constant version records, one per code path.
#include "frame/exports.h"

#ifndef NKPAC_VERSION_MAJOR
#error "the build passes the version numbers"
#endif

namespace nkp {
namespace {

#define NKP_STR2(x) #x
#define NKP_STR(x) NKP_STR2(x)

constexpr const char kVersionText[] = NKP_STR(NKPAC_VERSION_MAJOR) "." NKP_STR(
    NKPAC_VERSION_MINOR) "." NKP_STR(NKPAC_VERSION_PATCH) " (r" NKP_STR(NKPAC_REVISION) ")";

// __DATE__ pads a one-digit day with a blank ("Nov  1 2026"); the record
// wants single blanks between month, day and year.
struct BuildDate {
    char text[12] = {};
    constexpr BuildDate() {
        const char* d = __DATE__;
        int o = 0;
        for (int i = 0; d[i] != '\0'; ++i) {
            if (d[i] == ' ' && o > 0 && text[o - 1] == ' ') continue;
            text[o++] = d[i];
        }
    }
};
constexpr BuildDate kBuildDate;

constexpr nkpLibraryVersion kRecords[2] = {
    {NKPAC_VERSION_MAJOR, NKPAC_VERSION_MINOR, NKPAC_VERSION_PATCH, NKPAC_REVISION,
     {'S', '3', 0, 0}, "nkpAC SSSE3 (S3)", kVersionText, kBuildDate.text},
    {NKPAC_VERSION_MAJOR, NKPAC_VERSION_MINOR, NKPAC_VERSION_PATCH, NKPAC_REVISION,
     {'L', 'P', 0, 0}, "nkpAC Low-power SSSE3+MOVBE (LP)", kVersionText, kBuildDate.text},
};

}  // namespace

namespace ssse3 {
const nkpLibraryVersion* nkpacGetLibVersion() { return &kRecords[0]; }
}  // namespace ssse3
namespace lowpower {
const nkpLibraryVersion* nkpacGetLibVersion() { return &kRecords[1]; }
}  // namespace lowpower

}  // namespace nkp
