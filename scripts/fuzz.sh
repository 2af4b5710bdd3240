#!/usr/bin/env bash
# Builds the fuzz targets (clang, libFuzzer, AddressSanitizer and UBSan, in
# build-fuzz/), makes their seed corpora, runs each target for SECONDS
# (default 60) and prints executions, coverage (edges) and findings per
# target. A finding's input is kept in build-fuzz/findings/TARGET/; the
# corpora grow in build-fuzz/corpus/TARGET/ from run to run. Exit 1 when
# any target found something. FUZZ_TARGETS="glyph_fuzz cmap_fuzz" runs only
# those.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
FONTVEC_FUZZ=1 scripts/install-deps.sh
root=$PWD
cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFONTVEC_FUZZ=ON \
  -DFONTVEC_TESTS=OFF -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ > /dev/null
cmake --build build-fuzz -j"$(nproc)" > build-fuzz/build.log 2>&1 ||
  { tail -30 build-fuzz/build.log; exit 1; }
scripts/fuzz-seeds.sh build-fuzz/seeds
# The script target draws with a small font of its own.
export FONTVEC_FUZZ_FONT=$root/build-fuzz/seeds/fonts/DejaVuSans.ttf

targets=${FUZZ_TARGETS:-$(cd build-fuzz/fuzz && ls *_fuzz)}
rows=()
total=0
for t in $targets; do
  case $t in
    script_fuzz) seeds=scripts ;;
    picture_fuzz) seeds=pictures ;;
    delta_stream_fuzz) seeds=streams ;;
    *) seeds=fonts ;;
  esac
  corpus=build-fuzz/corpus/$t
  findings=build-fuzz/findings/$t
  work=build-fuzz/work/$t  # the script target's own files land here
  mkdir -p "$corpus" "$findings" "$work"
  # A script fault ends the interpreter by design and leaves its page
  # records behind; leaks are looked for in the other targets.
  leaks=1
  [ "$t" = script_fuzz ] && leaks=0
  # One allocation above this is a runaway: a few of the engine's heap
  # budgets, or a picture of the largest sides the reader accepts.
  malloc_mb=256
  [ "$t" = picture_fuzz ] && malloc_mb=1100
  # A hang is an input over 30 s: a glyph program may run its million
  # instructions for each of the glyph target's hinted requests.
  echo "fuzz: $t for ${seconds}s"
  (cd "$work" && ASAN_OPTIONS=detect_leaks=$leaks:allocator_may_return_null=1 \
    "$root/build-fuzz/fuzz/$t" -max_total_time="$seconds" -timeout=30 \
    -rss_limit_mb=2560 -malloc_limit_mb=$malloc_mb -print_final_stats=1 \
    -artifact_prefix="$root/$findings/" "$root/$corpus" \
    "$root/build-fuzz/seeds/$seeds") > "build-fuzz/$t.log" 2>&1 || true
  execs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "build-fuzz/$t.log" | grep -o '[0-9]*$' || echo 0)
  edges=$(grep -o 'cov: [0-9]*' "build-fuzz/$t.log" | tail -1 | grep -o '[0-9]*' || echo 0)
  found=$(find "$findings" -type f | wc -l)
  total=$((total + found))
  rows+=("$(printf '%-14s %12s %8s %9s' "$t" "${execs:-0}" "${edges:-0}" "$found")")
done
printf '%-14s %12s %8s %9s\n' target executions edges findings
printf '%s\n' "${rows[@]}"
[ "$total" -eq 0 ] || { echo "fuzz: findings in build-fuzz/findings/ (logs build-fuzz/*.log)"; exit 1; }
