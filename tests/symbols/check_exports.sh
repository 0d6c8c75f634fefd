#!/usr/bin/env bash
# check_exports.sh LIBRARY DIR: the library's exported dynamic symbols are
# exactly the API listed in DIR/*.syms, one per line: "c NAME" (C linkage),
# "c++ SIGNATURE" (as nm -C prints it) or "data NAME". Ignored: the linker's
# own symbols and AddressSanitizer's markers of exported variables.
set -u
lib=$1 dir=$2 fail=0
ignore='^(_init|_fini|_edata|_end|__bss_start|__odr_asan\..*)$'
declare -A seen byplain expected
while IFS=$'\t' read -r kind name plain; do
  [[ "$name" =~ $ignore ]] && continue
  seen["$name"]=$kind
  # constructors and destructors have two symbols that print alike
  [[ "$name" == _Z* ]] && byplain["$plain"]+="$name "
done < <(paste <(nm -D --defined-only "$lib" | awk '{print $2 "\t" $3}') <(nm -DC --defined-only "$lib" | cut -d' ' -f3-))

while IFS= read -r line; do
  line=$(sed 's/[[:space:]]*\(#.*\)\?$//' <<<"$line")
  [ -z "$line" ] && continue
  kind=${line%% *} name=${line#* } t=${seen["${line#* }"]:-}
  case "$kind" in
    c) [ "$t" = T ] || { echo "missing C function: $name (found kind '$t')"; fail=1; }; expected["$name"]=1 ;;
    data) [[ "$t" =~ ^[DRBV]$ ]] || { echo "missing data: $name (found kind '$t')"; fail=1; }; expected["$name"]=1 ;;
    c++)
      found=${byplain["$name"]:-}
      [ -n "$found" ] || { echo "missing C++ function: $name"; fail=1; }
      for m in $found; do expected["$m"]=1; done ;;
    *) echo "bad line in symbol list: $line"; fail=1 ;;
  esac
done < <(cat "$dir"/*.syms)

for sym in "${!seen[@]}"; do
  [ -n "${expected[$sym]:-}" ] || { echo "unexpected export: $sym"; fail=1; }
done
[ $fail = 0 ] && echo "exported symbols ok: ${#seen[@]} symbols"
exit $fail
