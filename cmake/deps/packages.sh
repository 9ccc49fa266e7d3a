#!/usr/bin/env bash
# Installs the Debian packages that are missing: packages.sh [--missing] build|bench|fresh|fuzz|docs|check...
# With --missing it only prints their names.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=cmake/deps/system.sh
source "$root/cmake/deps/system.sh"

boost=$(boost_version)
declare -A packages=(
    [build]="
        bzip2 ca-certificates cmake g++ ninja-build python3 util-linux xz-utils
        g++-mingw-w64-x86-64-posix wine wine64
        googletest libboost-filesystem$boost-dev libboost$boost-dev libcli11-dev libp11-kit-dev
        libssl-dev libvalijson-dev nlohmann-json3-dev
        gcab nsis opensc openssl osslsigncode python3-clang python3-pyte softhsm2 wixl"
    [bench]='
        gnutls-bin libbenchmark-dev libbotan-2-dev libgnutls28-dev libksba-dev libmbedtls-dev
        libnss3-dev libtasn1-6-dev pkgconf valgrind'
    [fresh]='debootstrap'
    [fuzz]='clang libclang-rt-dev llvm'
    [docs]='doxygen graphviz python3-rich'
    [check]='clang-format clang-tidy cppcheck doxygen graphviz pyflakes3 shellcheck'
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

# give_up REASON: the last line of the log, and what ./dev shows.
give_up() {
    echo "dev: $1" >&2
    exit 1
}

as_root=(env DEBIAN_FRONTEND=noninteractive LC_ALL=C)
if (($(id -u) != 0)); then
    [[ $(type -P sudo) ]] ||
        give_up "root or sudo is needed to install packages. Missing: ${missing[*]}"
    as_root=(sudo "${as_root[@]}")
fi

# Another program may be installing packages.
apt_get=("${as_root[@]}" apt-get -o DPkg::Lock::Timeout=600 -o Acquire::Retries=3)
is_updated=1
"${apt_get[@]}" -o APT::Update::Error-Mode=any update || is_updated=
install_missing() {
    "${apt_get[@]}" install --yes --no-install-recommends --no-remove "${missing[@]}"
}
install_missing && exit
# An earlier run may have been interrupted while dpkg was at work.
"${as_root[@]}" dpkg --configure -a && install_missing && exit
[[ $is_updated ]] ||
    give_up "packages cannot be fetched: apt-get update failed. Is there a network? Missing: ${missing[*]}"
give_up "apt-get cannot install ${missing[*]}"
