#!/usr/bin/env bash
# A fuzzing campaign over every libFuzzer target (every fuzz/<Name>Fuzz.cpp):
# builds them with clang, instrumented libraries and ASan+UBSan in
# build-fuzz/, runs each for SECONDS (default 60) from its seed corpus, and
# prints per target the executions, the coverage reached and the crashes.
#
#   scripts/fuzz-campaign.sh [SECONDS] [TARGET...]
#
# TOVRA_FUZZ_RUNS ends each target after that many executions instead
# (SECONDS still bounds it): TOVRA_FUZZ_RUNS=10000000 scripts/fuzz-campaign.sh 7200.
# TOVRA_FUZZ_SANITIZE=none drops ASan+UBSan (faster, finds less);
# TOVRA_FUZZ_NICE sets the nice level (default 19); TOVRA_FUZZ_PARALLEL runs
# that many targets at once (default 1). The corpus a run grows is
# kept in build-fuzz/fuzz/campaign/<target>/corpus and reused by the next run;
# crash inputs land in build-fuzz/fuzz/campaign/<target>/crashes.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
build=build-fuzz
sanitize=${TOVRA_FUZZ_SANITIZE:-address}
[ "$sanitize" = none ] && sanitize=""
niceness=${TOVRA_FUZZ_NICE:-19}

if ! command -v clang++ >/dev/null || ! ls /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a >/dev/null 2>&1; then
  echo "The campaign needs clang with libFuzzer. Run as root:" >&2
  echo "  apt-get update && apt-get install -y --no-install-recommends clang" >&2
  exit 1
fi

launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DTOVRA_LIBFUZZER=ON -DTOVRA_SANITIZE="$sanitize" -DTOVRA_BUILD_TESTS=OFF -DTOVRA_BUILD_BENCH=OFF \
  "${launcher[@]}" >/dev/null
targets=("$@")
[ ${#targets[@]} -eq 0 ] && mapfile -t targets < "$build/fuzz/targets.txt"
nice -n "$niceness" cmake --build "$build" -j "$(nproc)" --target "${targets[@]/%/_fuzz}"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:allocator_may_return_null=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
runs=${TOVRA_FUZZ_RUNS:--1}
# The method target drives the whole host, whose caches and released-handle
# quarantine keep memory from one input to the next: libFuzzer's per-input
# leak check would fire on nearly every input and scan the heap each time.
# That target checks itself for live CMPI objects and open descriptors after
# every input, and the leak check still runs when the process ends.
target_flags() {
  case $1 in
    method_args) echo -detect_leaks=0 ;;
  esac
}
run_one() {
  local t=$1 work="$build/fuzz/campaign/$1"
  mkdir -p "$work/corpus" "$work/crashes"
  echo "== $t: ${seconds}s" >&2
  # shellcheck disable=SC2046
  nice -n "$niceness" "$build/fuzz/${t}_fuzz" -max_total_time="$seconds" -runs="$runs" $(target_flags "$t") -print_final_stats=1 \
    -artifact_prefix="$work/crashes/" -rss_limit_mb=4096 "$work/corpus" "fuzz/corpus/$t" >"$work/log" 2>&1 || true
}
# TOVRA_FUZZ_PARALLEL targets run at once (default 1).
parallel=${TOVRA_FUZZ_PARALLEL:-1}
for t in "${targets[@]}"; do
  while [ "$(jobs -rp | wc -l)" -ge "$parallel" ]; do wait -n || true; done
  run_one "$t" &
done
wait

failed=0
printf '%-14s %12s %7s %8s %7s %8s\n' target executions cov features corpus crashes
for t in "${targets[@]}"; do
  work="$build/fuzz/campaign/$t"
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log" | tail -1)
  cov=$(grep -o 'cov: [0-9]*' "$work/log" | tail -1 | cut -d' ' -f2)
  ft=$(grep -o 'ft: [0-9]*' "$work/log" | tail -1 | cut -d' ' -f2)
  corpus=$(find "$work/corpus" -type f | wc -l)
  # Slow units are only reported (a loaded machine makes them); crashes,
  # leaks, timeouts and memory exhaustion fail the campaign.
  crashes=$(find "$work/crashes" -type f ! -name 'slow-unit-*' | wc -l)
  # A sanitizer report with no input behind it (the leak check at exit).
  [ "$crashes" -eq 0 ] && grep -q '^SUMMARY: ' "$work/log" && crashes=1
  [ "$crashes" -gt 0 ] && failed=1
  printf '%-14s %12s %7s %8s %7s %8s\n' "$t" "${execs:-?}" "${cov:-?}" "${ft:-?}" "$corpus" "$crashes"
done
[ $failed -eq 0 ] || echo "crash inputs are in $build/fuzz/campaign/<target>/crashes, logs (and reports with no input) beside them" >&2
exit $failed
