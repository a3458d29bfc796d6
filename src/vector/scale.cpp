// Two-path source: compiled once per code path into nkp::NKP_PATH_NS.
#include "frame/exports.h"
