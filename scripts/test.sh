#!/usr/bin/env bash
# Installs what is needed, builds the normal and the sanitizer (ASan+UBSan)
# configurations and runs every test (unit, integration, e2e) in both, then
# builds the libFuzzer targets with clang and runs each for a bounded time
# (ORVEL_FUZZ_SECONDS, 40 by default).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
cd "$here"
scripts/install-deps.sh

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

run() {
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
  cmake --build "$dir" -j"$(nproc)"
  ctest --test-dir "$dir" --output-on-failure -j"$(nproc)"
}

run build-test -DCMAKE_BUILD_TYPE=RelWithDebInfo
run build-test-asan -DCMAKE_BUILD_TYPE=Debug -DORVEL_SANITIZE=ON
run build-test-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVEL_FUZZ=ON \
  -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
  -DORVEL_FUZZ_SECONDS="${ORVEL_FUZZ_SECONDS:-40}"
