#!/usr/bin/env bash
# Builds cmutil and runs it. Installs missing Debian packages first (as root, or through
# sudo), so it works on a fresh Debian 12 machine.
#
#   ./run.sh demo   build, then run "cmutil demo"
#   ./run.sh test   build, run the whole test suite, the sanitizer suites (address +
#                   undefined over everything; thread over threads, timers and the
#                   pipeline), the fuzzers for a minute each, and a short benchmark pass
set -euo pipefail
cd "$(dirname "$0")"

PACKAGES=(cmake ninja-build g++ clang libclang-rt-14-dev pkg-config libgtest-dev libgmock-dev
          libbenchmark-dev libboost-dev libuv1-dev libspdlog-dev nlohmann-json3-dev rapidjson-dev
          libcurl4-openssl-dev pci.ids libproc2-dev iproute2 util-linux)
FUZZ_SECONDS=${FUZZ_SECONDS:-60}
JOBS=${JOBS:-$(nproc)}

install_missing_packages() {
  local missing=()
  for p in "${PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "installing: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -q
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q "${missing[@]}"
}

build() {  # build <preset> [targets...]
  local preset=$1
  shift
  cmake --preset "$preset" > "build/$preset.configure.log" 2>&1 || { cat "build/$preset.configure.log"; return 1; }
  cmake --build --preset "$preset" -j "$JOBS" ${1:+--target "$@"}
}

run_tests() {  # run_tests <preset> [ctest arguments...]
  local preset=$1
  shift
  ctest --test-dir "build/$preset" --output-on-failure -j "$JOBS" --timeout 600 "$@"
}

run_fuzzers() {
  build fuzz fuzzers
  local corpus_root=tests/fuzz/corpus
  for fuzzer in build/fuzz/tests/fuzz/fuzz_*; do
    [ -x "$fuzzer" ] || continue
    local name=${fuzzer##*/fuzz_}
    local work="build/fuzz/corpus/$name"
    mkdir -p "$work"
    echo "fuzzing $name for ${FUZZ_SECONDS}s"
    "$fuzzer" -max_total_time="$FUZZ_SECONDS" -timeout=10 -rss_limit_mb=4096 -print_final_stats=1 \
      "$work" "$corpus_root/$name" > "build/fuzz/$name.log" 2>&1 || { tail -50 "build/fuzz/$name.log"; return 1; }
    grep -E "stat::number_of_executed_units" "build/fuzz/$name.log" || true
  done
}

run_benchmarks() {
  for bench in build/default/bench/bench_*; do
    [ -x "$bench" ] || continue
    echo "smoke run: ${bench##*/}"
    timeout 600 "$bench" --benchmark_min_time=0.01 > "build/${bench##*/}.txt" 2>&1 || { tail -30 "build/${bench##*/}.txt"; return 1; }
  done
}

mode=${1:-}
case "$mode" in
  demo)
    install_missing_packages
    mkdir -p build
    build default cmutil_tool
    ./build/default/tools/cmutil demo
    ;;
  test)
    install_missing_packages
    mkdir -p build
    build default
    run_tests default
    build asan
    run_tests asan --repeat until-fail:3 -LE install
    build tsan
    run_tests tsan --repeat until-fail:3 -L 'thread|timer|pipeline|buffer'
    run_fuzzers
    run_benchmarks
    echo "all suites passed"
    ;;
  *)
    echo "usage: ./run.sh demo|test" >&2
    exit 2
    ;;
esac
