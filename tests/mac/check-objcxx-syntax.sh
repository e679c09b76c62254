#!/usr/bin/env bash
# Parses every Objective-C++ unit of the tree with clang against the Apple declarations in
# apple-sdk/ and the libproc double, so that a change of a portable header that breaks a macOS
# unit fails here. Usage: check-objcxx-syntax.sh SOURCE_DIR GENERATED_DIR CLANGXX [INCLUDE_DIRS]
# (INCLUDE_DIRS separated by ';'). Exit 77 when there is no clang++ to run.
set -uo pipefail

source_dir=$1
generated_dir=$2
compiler=${3:-}
extra_dirs=${4:-}
here=$(cd "$(dirname "$0")" && pwd)

if [[ -z $compiler || $compiler == *NOTFOUND* ]] || ! command -v "$compiler" >/dev/null; then
  echo "no clang++ available: Objective-C++ check skipped"
  exit 77
fi

includes=(-I"$here/apple-sdk" -I"$here/libproc-double" -I"$generated_dir" -I"$source_dir/tray")
for dir in "$source_dir"/libs/*/; do
  includes+=(-I"${dir%/}")
done
IFS=';' read -ra more <<<"$extra_dirs"
for dir in "${more[@]}"; do
  # The compiler's own system folders stay where they are, or #include_next breaks.
  [[ -z $dir || $dir == /usr/include || $dir == /usr/local/include ]] && continue
  includes+=(-isystem "$dir")
done

mapfile -t units < <(cd "$source_dir" && find libs tray -name '*.mm' -not -path '*/build*' | sort)
if ((${#units[@]} == 0)); then
  echo "no Objective-C++ units found under $source_dir"
  exit 1
fi

# -fblocks: Apple's compilers enable blocks by default, other targets do not.
flags=(-x objective-c++ -std=c++20 -fobjc-arc -fobjc-runtime=macosx-10.15 -fblocks -fsyntax-only
       -Wall -Wextra)
failed=0
for unit in "${units[@]}"; do
  unit_dir=$(dirname "$source_dir/$unit")
  if "$compiler" "${flags[@]}" "${includes[@]}" -I"$unit_dir" "$source_dir/$unit"; then
    echo "ok      $unit"
  else
    echo "FAILED  $unit"
    failed=$((failed + 1))
  fi
done
echo "${#units[@]} Objective-C++ units, $failed failed"
((failed == 0))
