#!/usr/bin/env bash
# Checks format, includes, C++ and shell scripts; all of them, even if one has complaints.
# The build folders native and windows are configured already.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$root"
# shellcheck source=cmake/dev/steps.sh
source cmake/dev/steps.sh

mapfile -t tracked < <(git ls-files --cached --others --exclude-standard --deduplicate)
cxx=() shell=() portable=()
for file in "${tracked[@]}"; do
    [[ -f $file ]] || continue
    case $file in
    *.cpp | *.h) cxx+=("$file") ;;
    *.sh | dev | .ci/run) shell+=("$file") ;;
    esac
    if grep --quiet --fixed-strings "\"$root/$file\"" build/native/compile_commands.json; then
        [[ $file == tests/* ]] || portable+=("$file")
    fi
done

failed=()
check() {
    try_step "$@" || failed+=("$1")
}

run_cppcheck() {
    cppcheck "--project=build/$1/compile_commands.json" -i/usr/src/googletest -itests -j "$(nproc)" \
        --enable=warning,performance,portability --inline-suppr --quiet --error-exitcode=1 \
        --suppressions-list=cmake/dev/cppcheck.suppressions "${@:2}"
}

run_clang_tidy() {
    printf '%s\0' "${portable[@]}" |
        xargs --null --max-args=1 --max-procs="$(nproc)" clang-tidy -p build/native --quiet \
            --extra-arg=-Wno-unknown-warning-option 2> >(grep -v ' warnings generated' >&2)
}

check "lint format" clang-format --dry-run --Werror "${cxx[@]}"
check "lint includes" python3 cmake/dev/rooms.py "${cxx[@]}"
check "lint shell scripts" shellcheck --external-sources "${shell[@]}"
check "lint cppcheck native" run_cppcheck native
check "lint cppcheck windows" run_cppcheck windows --platform=win64
check "lint clang-tidy" run_clang_tidy

for name in "${failed[@]}"; do
    echo
    echo "$name:"
    tail -n 30 "$(log_of "$name")" | cut -c 1-300 | sed 's/^/    /'
    echo "    the whole log: $(log_of "$name")"
done
((${#failed[@]} == 0))
