#!/usr/bin/env bash
# Installs the Debian packages that are missing: packages.sh [--missing] build|bench|fuzz|docs|check|mutate...
# With --missing it only prints their names.
set -euo pipefail

declare -A packages=(
    [build]='
        bzip2 ca-certificates cmake g++ ninja-build python3 util-linux xz-utils
        g++-mingw-w64-x86-64-posix wine wine64
        googletest libboost-filesystem1.81-dev libboost1.81-dev libcli11-dev libp11-kit-dev
        libssl-dev libvalijson-dev nlohmann-json3-dev
        gcab nsis opensc openssl osslsigncode python3-pyte softhsm2 wixl'
    [bench]='
        gnutls-bin libbenchmark-dev libbotan-2-dev libgnutls28-dev libksba-dev libmbedtls-dev
        libnss3-dev libtasn1-6-dev pkgconf valgrind'
    [fuzz]='clang libclang-rt-dev llvm'
    [docs]='doxygen graphviz python3-rich'
    [check]='clang-format clang-tidy cppcheck doxygen graphviz pyflakes3 shellcheck'
    [mutate]='python3-clang'
)

only_name=
if [[ ${1:-} == --missing ]]; then
    only_name=1
    shift
fi

wanted=()
for group in "$@"; do
    read -ra names -d '' <<<"${packages[$group]}" || true
    wanted+=("${names[@]}")
done

installed=$(dpkg-query --show --showformat='${db:Status-Status} ${Package}\n' "${wanted[@]}" 2>/dev/null |
    sed -n 's/^installed //p') || true
mapfile -t missing < <(comm -23 <(printf '%s\n' "${wanted[@]}" | sort -u) <(sort -u <<<"$installed"))
((${#missing[@]})) || exit 0
if [[ $only_name ]]; then
    printf '%s\n' "${missing[@]}"
    exit
fi

as_root=(env DEBIAN_FRONTEND=noninteractive LC_ALL=C)
if (($(id -u) != 0)); then
    as_root=(sudo "${as_root[@]}")
fi
"${as_root[@]}" apt-get update
"${as_root[@]}" apt-get install --yes --no-install-recommends "${missing[@]}"
