#!/usr/bin/env bash
# Installs what the tests need, builds, runs the whole suite with CTest
# (the real services start and stop as CTest fixtures), runs it again built
# with the sanitizers, fuzzes the parsers, and stops anything left behind.
# Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")"
here=$(pwd)

bash tools/install-deps.sh deps/run.txt deps/test.txt

build=${QUORVEL_TEST_BUILD:-$here/build-test}
sanitized=$build-sanitize
fuzz=$build-fuzz
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j"$(nproc)"
cmake -S . -B "$sanitized" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUORVEL_SANITIZE=ON \
    -DQUORVEL_BUILD_BENCH=OFF >/dev/null
cmake --build "$sanitized" -j"$(nproc)"
CC=clang-14 CXX=clang++-14 cmake -S tests/fuzz -B "$fuzz" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$fuzz" -j"$(nproc)"

stop_services() {
    for state in "$build/test-state" "$sanitized/test-state"; do
        for s in cups webdav nginx xtray; do
            bash "tests/support/$s.sh" down "$state" >/dev/null 2>&1 || true
        done
    done
}
trap stop_services EXIT

ctest --test-dir "$build" --output-on-failure --timeout 900 "$@"

# AddressSanitizer with LeakSanitizer, and UBSan: the first report stops the program, so its
# test fails. Left out: the install checks (they test the package and the install script, the
# same in both builds) and the Windows checks (no program of ours built here runs in them).
export ASAN_OPTIONS=detect_leaks=1:halt_on_error=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
export LSAN_OPTIONS=suppressions=$here/tests/support/lsan.supp:print_suppressions=0
# The 2,000 jobs in a row of server_abuse ran above; 400 do here.
QUORVEL_ABUSE_JOBS=400 ctest --test-dir "$sanitized" --output-on-failure --timeout 1800 \
    -E '^(setup_install_deps|setup_installed|platform_win_compile|platform_win_run)$' "$@"

# libFuzzer over each parser, two at a time, 60 s each from the seeds in tests/fuzz/corpus;
# tests/fuzz/regress holds inputs too large to fuzz from, run once each (one tag with 20,000
# attributes must read well inside the limit). A crash, a leak, a sanitizer report or one
# input slower than 1 s fails.
fuzz_target() {
    local t=$1 out=$fuzz/runs/$1
    local run=("$fuzz/fuzz_$t" -timeout=1 -rss_limit_mb=2048 -error_exitcode=77
               -timeout_exitcode=77 -artifact_prefix="$out/")
    rm -rf "$out" && mkdir -p "$out/corpus"
    if { [ ! -d "tests/fuzz/regress/$t" ] || "${run[@]}" "tests/fuzz/regress/$t"/*; } \
           >"$out.log" 2>&1 &&
       "${run[@]}" -max_len=4096 -max_total_time=60 "$out/corpus" "tests/fuzz/corpus/${t%_qt}" \
           >>"$out.log" 2>&1; then
        echo "fuzz_$t passed: $(grep -o 'Done [0-9]* runs' "$out.log")"
    else
        echo "fuzz_$t FAILED (the input is kept in $out/):"
        tail -n 40 "$out.log"
        return 1
    fi
}
export -f fuzz_target
export fuzz
printf '%s\n' listing listing_qt http_date resp_headers net_view tray_text job_buffer job_language |
    xargs -P 2 -I{} bash -c 'fuzz_target {}'
