#!/usr/bin/env bash
# Runs the tests of one build: runtests.sh PRESET FILTER JOBS. With a filter it runs only the GoogleTest
# tests and the scripts with the filter in their names. The results are in build/PRESET/test-results.
set -euo pipefail

preset=$1 filter=$2 jobs=$3
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
results=$root/build/$preset/test-results

# Some kernels spread addresses further than the sanitizers' run-time libraries can take.
fixed_addresses=()
if [[ $preset == native* ]] && setarch -R true 2>/dev/null; then
    fixed_addresses=(setarch -R)
fi

run() {
    local report=$1
    shift
    # Very rarely a program hangs under Wine; ctest then runs it a second time.
    "${fixed_addresses[@]}" ctest --preset "$preset" --parallel "$jobs" --no-tests=ignore --repeat after-timeout:2 \
        --output-junit "$report" "$@"
}

cd "$root"
rm -rf "$results"
mkdir -p "$results"
if [[ -z $filter ]]; then
    run "$results/all.xml"
    exit
fi

name=$(printf '%s' "$filter" | sed 's/[][().*+?^$|\\]/\\&/g')
status=0
GTEST_FILTER="*$filter*" run "$results/programs.xml" --label-exclude '^script$' || status=1
run "$results/scripts.xml" --label-regex '^script$' --tests-regex "$name" || status=1
exit "$status"
