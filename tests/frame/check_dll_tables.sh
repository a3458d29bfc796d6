#!/bin/sh
# Reads the PE export and import tables of the Windows build and fails on
# anything beyond the contract:
#   nkpac.dll   exports exactly the names of its module definition; imports
#               from nkpcore.dll exactly nkpMalloc, nkpFree and
#               nkpGetEnabledCpuFeatures; otherwise only system DLLs;
#   nkpac.lib   (the import library) offers exactly the same names;
#   nkpcore.dll exports exactly the functions of nkpcore.h; imports only
#               system DLLs.
# A MinGW runtime DLL (libstdc++, libgcc, winpthread) among the imports means
# the compiler runtime was not linked statically.
# The module definition itself is held to the export list files, read as
# text, so that nothing can drop out between the list and the DLL.
# usage: check_dll_tables.sh OBJDUMP nkpac.dll nkpac.lib nkpcore.dll nkpac.def nkpcore.h SRC_DIR
set -eu
objdump=$1
nkpac=$2
implib=$3
core=$4
def=$5
core_header=$6
src=$7
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
status=0

# Names in the export name table of a DLL, one a line, sorted.
exports_of() {
  "$objdump" -p "$1" | awk '
    /^\[Ordinal\/Name Pointer\] Table/ { on = 1; next }
    on && NF == 0 { on = 0 }
    on && $1 ~ /^\[/ { print $NF }' | sort
}

# "dll name" for every imported function, DLL names in lower case.
imports_of() {
  "$objdump" -p "$1" | awk '
    /DLL Name:/ { dll = tolower($3); next }
    NF == 0 { dll = "" }
    dll != "" && $1 ~ /^[0-9a-f]+$/ && $2 ~ /^[0-9]+$/ && NF >= 3 { print dll, $3 }' | sort
}

# System DLLs a DLL built against msvcrt (or the UCRT) may import from.
check_system_only() {
  name=$1
  list=$2
  awk '{print $1}' "$list" | sort -u | while read -r dll; do
    case "$dll" in
      kernel32.dll|msvcrt.dll|ucrtbase.dll|api-ms-win-crt-*.dll) ;;
      nkpcore.dll) [ "$name" = nkpac.dll ] || { echo "$name: imports from $dll"; echo bad > "$tmp/bad"; } ;;
      *) echo "$name: imports from $dll, which is not a system DLL"; echo bad > "$tmp/bad" ;;
    esac
  done
}

compare() {
  what=$1
  expected=$2
  actual=$3
  if diff -u "$expected" "$actual" > "$tmp/diff"; then
    echo "$what: $(wc -l < "$actual") names, as expected"
  else
    echo "$what differ (- expected, + found):"
    tail -n +3 "$tmp/diff"
    status=1
  fi
}

# nkpac.dll
sed -n '/^EXPORTS/,$p' "$def" | sed '1d' | awk 'NF {print $1}' | sort > "$tmp/listed"
cat "$src/frame/export_list.inc" "$src"/*/exports.inc | sed '/^[[:space:]]*\/\//d' |
  sed -n 's/^[[:space:]]*NKP_EXPORT\(_DUAL\)\{0,1\}(\([A-Za-z_][A-Za-z0-9_]*\)).*/\2/p' | sort > "$tmp/list_files"
compare "nkpac.def names" "$tmp/list_files" "$tmp/listed"
exports_of "$nkpac" > "$tmp/nkpac_exports"
compare "nkpac.dll exports" "$tmp/listed" "$tmp/nkpac_exports"

imports_of "$nkpac" > "$tmp/nkpac_imports"
printf 'nkpcore.dll nkpFree\nnkpcore.dll nkpGetEnabledCpuFeatures\nnkpcore.dll nkpMalloc\n' > "$tmp/core_allowed"
grep '^nkpcore\.dll ' "$tmp/nkpac_imports" > "$tmp/core_imported" || true
compare "nkpac.dll imports from nkpcore.dll" "$tmp/core_allowed" "$tmp/core_imported"
check_system_only nkpac.dll "$tmp/nkpac_imports"

# nkpac.lib: one __imp_ pointer per export.
"$objdump" -t "$implib" | sed -n 's/.* __imp_\([A-Za-z_][A-Za-z0-9_]*\)$/\1/p' | sort -u > "$tmp/implib"
compare "nkpac.lib import names" "$tmp/listed" "$tmp/implib"

# nkpcore.dll
sed -n 's/^NKPCORE_API[^(]*[ *]\([A-Za-z_][A-Za-z0-9_]*\)(.*/\1/p' "$core_header" | sort > "$tmp/core_listed"
exports_of "$core" > "$tmp/core_exports"
compare "nkpcore.dll exports" "$tmp/core_listed" "$tmp/core_exports"
imports_of "$core" > "$tmp/core_imports"
check_system_only nkpcore.dll "$tmp/core_imports"

[ -e "$tmp/bad" ] && status=1
if [ "$status" -eq 0 ]; then
  echo "imports: $(awk '{print $1}' "$tmp/nkpac_imports" | sort -u | tr '\n' ' ')(nkpac.dll)," \
       "$(awk '{print $1}' "$tmp/core_imports" | sort -u | tr '\n' ' ')(nkpcore.dll)"
fi
exit "$status"
