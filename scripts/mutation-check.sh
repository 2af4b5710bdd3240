#!/usr/bin/env bash
# Mutation check: applies each deliberate fault of scripts/mutation-faults.txt
# in turn to a scratch copy of the tree, builds, runs the test suite (the
# normal build's ctest, stopping at the first failure) and prints one table
# row per fault: the first test that failed, or "survived".
#
#   scripts/mutation-check.sh [--source DIR] [--work DIR] [--faults FILE]
#                             [--only N,N,...]
#
# --source  the tree to test (default: this checkout, uncommitted changes
#           included); another checkout measures an older suite with the same
#           faults
# --work    scratch folder for the copy and its build (default:
#           $TMPDIR/fontvec-mutation); kept, so a second run builds little
# --only    fault numbers (1-based, in file order) to run; default all
# The unmutated suite must pass first. Nothing outside --work is touched.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
source_dir="$(cd "$here/.." && pwd)"
work="${TMPDIR:-/tmp}/fontvec-mutation"
faults="$here/mutation-faults.txt"
only=""
while [ $# -gt 0 ]; do
  case "$1" in
    --source) source_dir="$(cd "$2" && pwd)"; shift 2 ;;
    --work) work="$2"; shift 2 ;;
    --faults) faults="$(cd "$(dirname "$2")" && pwd)/$(basename "$2")"; shift 2 ;;
    --only) only=",$2,"; shift 2 ;;
    *) echo "usage: $0 [--source DIR] [--work DIR] [--faults FILE] [--only N,...]" >&2
       exit 2 ;;
  esac
done
[ -f "$faults" ] || { echo "no fault list at $faults" >&2; exit 2; }

tree="$work/tree"
build="$work/build"
log="$work/ctest.log"
mkdir -p "$tree"

# A fresh copy of the source's files (tracked and untracked, not ignored);
# files whose contents did not change keep their times, so the build stays.
copy_tree() {
  local list="$work/files.txt"
  if git -C "$source_dir" rev-parse --git-dir >/dev/null 2>&1; then
    git -C "$source_dir" ls-files -co --exclude-standard >"$list"
  else
    (cd "$source_dir" && find . -type f -not -path './build*' -not -path './.git/*' | sed 's|^\./||') >"$list"
  fi
  local f
  while IFS= read -r f; do
    [ -f "$source_dir/$f" ] || continue
    if ! cmp -s "$source_dir/$f" "$tree/$f"; then
      mkdir -p "$tree/$(dirname "$f")"
      cp "$source_dir/$f" "$tree/$f"  # a fresh time: the build must see it
    fi
  done <"$list"
  # files the source no longer has (a merged test file) leave the copy too
  (cd "$tree" && find . -type f | sed 's|^\./||' | sort) |
    comm -23 - <(sort "$list") | while IFS= read -r f; do rm -f "$tree/$f"; done
}

build_tree() {
  cmake -S "$tree" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DFONTVEC_TESTS=ON -DFONTVEC_BENCHMARKS=OFF >"$work/cmake.log" 2>&1 &&
    cmake --build "$build" -j"$(nproc)" >>"$work/cmake.log" 2>&1
}

# Runs the suite; prints the first failing test's name, nothing on a pass.
# The suite's temporary files go to a folder of the work area that is
# emptied after each run: a fault that makes a death test's child print
# without end until the timeout would otherwise leave gigabytes of captured
# output in /tmp.
run_suite() {
  local scratch="$work/scratch"
  rm -rf "$scratch" && mkdir -p "$scratch"
  if TMPDIR="$scratch" TEST_TMPDIR="$scratch" \
      ctest --test-dir "$build" --stop-on-failure --timeout 120 -j"$(nproc)" \
      >"$log" 2>&1; then
    rm -rf "$scratch"
    return 0
  fi
  rm -rf "$scratch"
  local first
  first=$(grep -m1 -E 'Test +#[0-9]+: .*(\*\*\*|Not Run)' "$log" |
          sed -E 's/.*Test +#[0-9]+: ([^ ]+).*/\1/')
  echo "${first:-ctest failed (see $log)}"
}

# Applies fault text $2 -> $3 in file $1 when $2 occurs exactly once.
apply_fault() {
  OLD="$2" NEW="$3" perl -0777 -i -ne '
    my $n = () = /\Q$ENV{OLD}\E/g;
    if ($n != 1) { print; exit 3 }
    s/\Q$ENV{OLD}\E/$ENV{NEW}/; print;' "$1"
}

copy_tree
echo "building $tree in $build" >&2
build_tree || { echo "the unmutated tree does not build ($work/cmake.log)" >&2; exit 1; }
baseline=$(run_suite || true)
if [ -n "$baseline" ] || grep -q '(Skipped)' "$log"; then
  echo "the unmutated suite must pass with nothing skipped first: ${baseline:-a test was skipped} ($log)" >&2
  exit 1
fi

echo "| # | file | fault | result |"
echo "|---|---|---|---|"
n=0 file="" why="" old="" killed=0 total=0
run_fault() {
  n=$((n + 1))
  [ -z "$only" ] || [[ "$only" == *",$n,"* ]] || return 0
  local target="$tree/$file" result
  cp -p "$target" "$work/original"
  if ! apply_fault "$target" "$old" "$new"; then
    result="does not apply"
  elif ! build_tree; then
    result="does not build"
  else
    result=$(run_suite || true)
    total=$((total + 1))
    if [ -n "$result" ]; then result="killed by $result"; killed=$((killed + 1)); else result="survived"; fi
  fi
  cp "$work/original" "$target"
  touch "$target"  # the mutated object must be rebuilt from the original
  echo "| $n | $file | $why | $result |"
  echo "fault $n: $result" >&2
}
while IFS= read -r line || [ -n "$line" ]; do
  case "$line" in
    '@ '*) rest="${line#@ }"; file="${rest%% | *}"; why="${rest#* | }" ;;
    '- '*) old="${line#- }" ;;
    '+ '*) new="${line#+ }"; run_fault </dev/null ;;
  esac
done <"$faults"
build_tree || true  # leave the scratch build unmutated
echo
echo "killed $killed of $total faults that applied and built"
