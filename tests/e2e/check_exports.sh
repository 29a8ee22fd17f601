#!/bin/bash
# check_exports.sh LIBRARY LIST OBJDUMP: compares the library's exported names with the list of what
# hosts may rely on.
set -euo pipefail
library=$1 list=$2 objdump=$3
export LC_ALL=C
if [[ $library == *.dll ]]; then
  found=$("$objdump" -p "$library" |
    sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/s/^\s*\[ *[0-9]*\] \(.*\)$/\1/p')
  expected=$(sed -e '/# Linux$/d' -e '/^#/d' "$list")
else
  found=$(nm -D --defined-only "$library" | awk '{ print $3 }')
  expected=$(sed -e 's/ # Linux$//' -e '/^#/d' "$list")
fi
diff <(sort <<< "$expected") <(sort <<< "$found")
