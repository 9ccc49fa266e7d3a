#!/usr/bin/env bash
# Checks formatting, includes, C++, shell and Python scripts, and that everything public is documented.
# Runs all checks, even if one fails. The builds native and windows must be configured.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$root"
# shellcheck source=cmake/dev/steps.sh
source cmake/dev/steps.sh

is_compiled_in() {
    grep --quiet --fixed-strings "\"$root/$2\"" "build/$1/compile_commands.json"
}

mapfile -t tracked < <(git ls-files --cached --others --exclude-standard --deduplicate)
cxx=() shell=() python=() portable=() windows=()
for file in "${tracked[@]}"; do
    [[ -f $file ]] || continue
    case $file in
    *.cpp | *.h) cxx+=("$file") ;;
    *.sh | dev | .ci/run | cmake/dev/hooks/*) shell+=("$file") ;;
    *.py) python+=("$file") ;;
    esac
    [[ $file != tests/* ]] || continue
    if is_compiled_in native "$file"; then
        portable+=("$file")
    elif is_compiled_in windows "$file"; then
        windows+=("$file")
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

# run_clang_tidy FOLDER [OPTION...]: checks the files whose names it reads, with the compile commands
# in the folder
run_clang_tidy() {
    xargs --null --max-args=1 --max-procs="$(nproc)" clang-tidy -p "$1" --quiet \
        --extra-arg=-Wno-unknown-warning-option "${@:2}" 2> >(grep -v ' warnings generated' >&2)
}

run_clang_tidy_natively() {
    printf '%s\0' "${portable[@]}" | run_clang_tidy build/native
}

# Clang compiles for Windows too. It gets the cross compiler's headers, except those for GCC's built-in
# functions, and none of the options that only GCC has.
run_clang_tidy_for_windows() {
    local folder options=(--extra-arg=--target=x86_64-w64-windows-gnu --extra-arg=-nostdinc++)
    while read -r folder; do
        options+=("--extra-arg=-isystem$folder")
    done < <(x86_64-w64-mingw32-g++-posix -x c++ -E -v /dev/null 2>&1 |
        grep -E '^ .*(/c\+\+.*|mingw32/include)$')
    mkdir -p build/lint
    sed -E 's/ -(fno-keep-inline-dllexport|fsanitize\S*|Wa,-mbig-obj)//g' \
        build/windows/compile_commands.json >build/lint/compile_commands.json
    printf '%s\0' "${windows[@]}" | run_clang_tidy build/lint "${options[@]}"
}

check "lint format" clang-format --dry-run --Werror "${cxx[@]}"
check "lint includes" python3 cmake/dev/layers.py "${cxx[@]}"
check "lint shell scripts" shellcheck --external-sources "${shell[@]}"
check "lint Python scripts" pyflakes3 "${python[@]}"
check "lint API reference" doxygen docs/Doxyfile
check "lint cppcheck native" run_cppcheck native
check "lint cppcheck windows" run_cppcheck windows --platform=win64
check "lint clang-tidy" run_clang_tidy_natively
check "lint clang-tidy windows" run_clang_tidy_for_windows

for name in "${failed[@]}"; do
    echo
    echo "$name:"
    tail -n 30 "$(log_of "$name")" | cut -c 1-300 | sed 's/^/    /'
    echo "    the whole log: $(log_of "$name")"
done
((${#failed[@]} == 0))
