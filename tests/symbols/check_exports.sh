#!/usr/bin/env bash
# Compares the library's exported dynamic symbols with the expected API.
#   check_exports.sh LIBRARY DIR
# DIR holds *.syms files with one entry per line:
#   c NAME          function with C linkage (plain symbol name)
#   c++ SIGNATURE   function with C++ linkage (demangled signature, as nm -C prints it)
#   data NAME       exported variable or table
# Fails when an expected symbol is missing or has the wrong linkage or kind,
# and when the library exports anything that is not listed.
set -u
lib=$1 dir=$2
fail=0
raw=$(nm -D --defined-only "$lib" | awk '{print $2 " " $3}')
demangled=$(nm -DC --defined-only "$lib" | cut -d' ' -f3-)
# linker-made symbols that every shared object has, and AddressSanitizer's
# one-definition-rule markers of exported variables
ignore='^(_init|_fini|_edata|_end|__bss_start|__odr_asan\..*)$'

declare -A seen byplain
while IFS=$'\t' read -r kind name plain; do
  [[ "$name" =~ $ignore ]] && continue
  seen["$name"]=$kind
  # constructors and destructors have two symbols that print alike
  [[ "$name" == _Z* ]] && byplain["$plain"]+="$name "
done < <(paste <(awk '{print $1 "\t" $2}' <<<"$raw") <(printf '%s\n' "$demangled"))

declare -A expected
while IFS= read -r line; do
  line=${line%%#*}
  line=$(sed 's/[[:space:]]*$//' <<<"$line")
  [ -z "$line" ] && continue
  kind=${line%% *} name=${line#* }
  case "$kind" in
    c)
      t=${seen["$name"]:-}
      if [ "$t" != T ]; then echo "missing C function: $name (found kind '${t}')"; fail=1; fi
      expected["$name"]=1 ;;
    data)
      t=${seen["$name"]:-}
      if [[ ! "$t" =~ ^[DRBV]$ ]]; then echo "missing data: $name (found kind '${t}')"; fail=1; fi
      expected["$name"]=1 ;;
    c++)
      found=${byplain["$name"]:-}
      if [ -z "$found" ]; then echo "missing C++ function: $name"; fail=1
      else for m in $found; do expected["$m"]=1; done; fi ;;
    *) echo "bad line in symbol list: $line"; fail=1 ;;
  esac
done < <(cat "$dir"/*.syms)

for sym in "${!seen[@]}"; do
  if [ -z "${expected[$sym]:-}" ]; then
    echo "unexpected export: $sym"; fail=1
  fi
done
n=${#seen[@]}
if [ $fail = 0 ]; then echo "exported symbols ok: $n symbols"; fi
exit $fail
