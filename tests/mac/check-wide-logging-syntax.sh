#!/usr/bin/env bash
# Compiles every portable unit and every C++ unit of the Mac/ folders with -fsyntax-only against
# log4cplus's wide-character interface (its headers with UNICODE defined, as the macOS build has
# them), so that text the wide log stream cannot take, a narrow std::string above all, fails here
# and not first on macOS. The Mac/ units see the libproc double and the Apple declarations.
# Usage: check-wide-logging-syntax.sh UNITS_FILE CXX STD_OPTION SOURCE_DIR BINARY_DIR
# UNITS_FILE has one unit a line, as tests/mac/CMakeLists.txt writes it:
#   portable|mac '|' unit '|' include folders '|' definitions '|' compile options  (lists: ';').
set -uo pipefail
units_file=$1 compiler=$2 std_option=$3 source_dir=$4 binary_dir=$5
here=$(cd "$(dirname "$0")" && pwd)

# Sets the array `flags` for one line of the units file.
unit_flags() {
  local kind includes definitions options item
  IFS='|' read -r kind unit includes definitions options <<<"$1"
  flags=("$std_option" -fsyntax-only -DUNICODE -D_UNICODE)
  [[ $kind == mac ]] && flags+=(-I"$here/libproc-double" -I"$here/apple-sdk")
  IFS=';' read -ra list <<<"$includes"
  for item in "${list[@]}"; do
    # The compiler's own system folders stay where they are, or #include_next breaks.
    [[ -z $item || $item == /usr/include || $item == /usr/local/include ]] && continue
    [[ $item == "$source_dir"/* || $item == "$binary_dir"/* ]] && flags+=(-I"$item") || flags+=(-isystem "$item")
  done
  IFS=';' read -ra list <<<"$definitions" && flags+=("${list[@]/#/-D}")
  IFS=';' read -ra list <<<"$options" && flags+=("${list[@]}")
}

mapfile -t lines <"$units_file"
# The check means something only if the headers really switch to wide characters.
unit_flags "${lines[0]:-}"
if ! printf '%s\n' '#include <log4cplus/tchar.h>' '#include <type_traits>' \
    'static_assert(std::is_same_v<log4cplus::tchar, wchar_t>);' | "$compiler" "${flags[@]}" -x c++ -; then
  echo "log4cplus's headers do not select wchar_t with UNICODE: nothing to check against"
  exit 1
fi

failed=()
for line in "${lines[@]}"; do
  unit_flags "$line"
  "$compiler" "${flags[@]}" "$unit" && echo "ok      ${unit#"$source_dir"/}" ||
    { echo "FAILED  ${unit#"$source_dir"/}"; failed+=("${unit#"$source_dir"/}"); }
done
echo "${#lines[@]} units compiled with wide-character logging, ${#failed[@]} failed: ${failed[*]}"
# Both kinds must be there, or the list was written wrongly.
grep -q '^portable|' "$units_file" && grep -q '^mac|' "$units_file" && ((${#failed[@]} == 0))
