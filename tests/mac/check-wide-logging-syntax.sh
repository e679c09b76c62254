#!/usr/bin/env bash
# Compiles every portable unit and every C++ unit of the Mac/ folders with -fsyntax-only against
# log4cplus's wide-character interface (its headers with UNICODE defined, as the macOS build has
# them), so that text the wide log stream cannot take, a narrow std::string above all, fails here
# and not first on macOS. The Mac/ units see the libproc double and the Apple declarations.
# Usage: check-wide-logging-syntax.sh UNITS_FILE CXX STD_OPTION SOURCE_DIR BINARY_DIR
# UNITS_FILE has one unit a line, as tests/mac/CMakeLists.txt writes it:
#   portable|mac '|' unit '|' include folders '|' definitions '|' compile options  (lists: ';').
set -uo pipefail

units_file=$1
compiler=$2
std_option=$3
source_dir=$4
binary_dir=$5
here=$(cd "$(dirname "$0")" && pwd)

if [[ ! -s $units_file ]]; then
  echo "no list of units at $units_file"
  exit 1
fi

wide=(-DUNICODE -D_UNICODE)

# Sets the array `flags` for one unit's settings.
unit_flags() {
  local kind=$1 includes=$2 definitions=$3 options=$4 item
  flags=("$std_option" -fsyntax-only "${wide[@]}")
  [[ $kind == mac ]] && flags+=(-I"$here/libproc-double" -I"$here/apple-sdk")
  local -a list
  IFS=';' read -ra list <<<"$includes"
  for item in "${list[@]}"; do
    # The compiler's own system folders stay where they are, or #include_next breaks.
    [[ -z $item || $item == /usr/include || $item == /usr/local/include ]] && continue
    if [[ $item == "$source_dir"/* || $item == "$binary_dir"/* ]]; then
      flags+=(-I"$item")
    else
      flags+=(-isystem "$item")
    fi
  done
  IFS=';' read -ra list <<<"$definitions"
  for item in "${list[@]}"; do
    [[ -n $item ]] && flags+=(-D"$item")
  done
  IFS=';' read -ra list <<<"$options"
  for item in "${list[@]}"; do
    [[ -n $item ]] && flags+=("$item")
  done
}

mapfile -t lines <"$units_file"

# The check means something only if the headers really switch to wide characters.
IFS='|' read -r kind unit includes definitions options <<<"${lines[0]}"
unit_flags "$kind" "$includes" "$definitions" "$options"
if ! printf '%s\n' '#include <log4cplus/tchar.h>' '#include <type_traits>' \
    'static_assert(std::is_same_v<log4cplus::tchar, wchar_t>);' |
    "$compiler" "${flags[@]}" -x c++ -; then
  echo "log4cplus's headers do not select wchar_t with UNICODE: nothing to check against"
  exit 1
fi

portable=0
mac=0
failed=()
for line in "${lines[@]}"; do
  IFS='|' read -r kind unit includes definitions options <<<"$line"
  unit_flags "$kind" "$includes" "$definitions" "$options"
  name=${unit#"$source_dir"/}
  if [[ $kind == mac ]]; then
    mac=$((mac + 1))
  else
    portable=$((portable + 1))
  fi
  if "$compiler" "${flags[@]}" "$unit"; then
    echo "ok      $name"
  else
    echo "FAILED  $name"
    failed+=("$name")
  fi
done

echo "$((portable + mac)) units compiled with wide-character logging ($portable portable, $mac macOS), ${#failed[@]} failed"
for name in "${failed[@]}"; do
  echo "  failed: $name"
done
if ((portable == 0 || mac == 0)); then
  echo "expected both portable and macOS units in $units_file"
  exit 1
fi
((${#failed[@]} == 0))
