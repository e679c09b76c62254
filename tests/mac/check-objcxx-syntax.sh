#!/usr/bin/env bash
# Parses every Objective-C++ unit of the tree with clang against the Apple declarations in
# apple-sdk/ and the libproc double, so that a change of a portable header that breaks a macOS
# unit fails here. Usage: check-objcxx-syntax.sh SOURCE_DIR GENERATED_DIR CLANGXX [INCLUDE_DIRS]
# (INCLUDE_DIRS separated by ';'). Exit 77 when there is no clang++ to run.
set -uo pipefail
source_dir=$1 compiler=${3:-}
here=$(cd "$(dirname "$0")" && pwd)
if [[ -z $compiler || $compiler == *NOTFOUND* ]] || ! command -v "$compiler" >/dev/null; then
  echo "no clang++ available: Objective-C++ check skipped"
  exit 77
fi

# -fblocks: Apple's compilers enable blocks by default, other targets do not.
flags=(-x objective-c++ -std=c++20 -fobjc-arc -fobjc-runtime=macosx-10.15 -fblocks -fsyntax-only -Wall -Wextra
       -I"$here/apple-sdk" -I"$here/libproc-double" -I"$2" -I"$source_dir/tray")
for dir in "$source_dir"/libs/*/; do flags+=(-I"${dir%/}"); done
IFS=';' read -ra more <<<"${4:-}"
# The compiler's own system folders stay where they are, or #include_next breaks.
for dir in "${more[@]}"; do [[ -n $dir && $dir != /usr/include && $dir != /usr/local/include ]] && flags+=(-isystem "$dir"); done

mapfile -t units < <(cd "$source_dir" && find libs tray -name '*.mm' | sort)
failed=0
for unit in "${units[@]}"; do
  "$compiler" "${flags[@]}" -I"$(dirname "$source_dir/$unit")" "$source_dir/$unit" && echo "ok      $unit" ||
    { echo "FAILED  $unit"; failed=$((failed + 1)); }
done
echo "${#units[@]} Objective-C++ units, $failed failed"
((${#units[@]} > 0 && failed == 0))
