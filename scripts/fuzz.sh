#!/usr/bin/env bash
# Builds the libFuzzer targets with clang in build/fuzz (a folder of its own, so the
# gcc presets stay untouched) and runs each from its seed corpus for a bounded time
# (TAVRI_FUZZ_SECONDS, default 30). A crash, a sanitizer report, a hang (one input
# running over 10 s), memory beyond 2 GB, or an exception other than the host's
# classes (it aborts) fails the run; the input that did it is kept in build/fuzz.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${TAVRI_FUZZ_SECONDS:-30}"
build=build/fuzz
flags="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
  -DTAVRI_BUILD_FUZZERS=ON -DTAVRI_BUILD_TOOLS=OFF -DTAVRI_BUILD_BENCHMARKS=OFF -DTAVRI_WITH_ARAVIS=OFF
nice -n 5 cmake --build "$build" --target settings_json_fuzzer update_settings_fuzzer rig_file_fuzzer

# target:corpus folder:dictionary
targets=(settings_json_fuzzer:settings:settings.dict
         update_settings_fuzzer:update:settings.dict
         rig_file_fuzzer:rig:rig.dict)
status=0
for entry in "${targets[@]}"; do
  IFS=: read -r target corpus dict <<< "$entry"
  work="$build/corpus/$corpus"
  log="$build/$target.log"
  mkdir -p "$work"
  # New inputs go to the work folder; the seeds in the repository stay as they are.
  if UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
     "$build/bin/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=8192 \
       -dict="tests/fuzz/$dict" -print_final_stats=1 -artifact_prefix="$build/$target-" \
       "$work" "tests/fuzz/corpus/$corpus" > "$log" 2>&1; then
    result="clean"
  else
    tail -n 40 "$log"
    result="FAILED (log: $log)"
    status=1
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  echo "fuzz: $target: ${runs:-?} executions in ${seconds} s, $result"
done
exit "$status"
