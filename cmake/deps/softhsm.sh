#!/usr/bin/env bash
# Builds SoftHSM with Botan as a Windows module, build/deps/softhsm/softhsm2.dll, and tries to load it.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=cmake/deps/source.sh
source "$root/cmake/deps/source.sh"

sources=$root/build/deps/src
build=$root/build/deps/obj/softhsm
botan=$root/build/deps/obj/botan
module=$root/build/deps/softhsm/softhsm2.dll

# With only the modules that SoftHSM uses. configure.py writes botan_all.cpp and botan_all.h into the
# current directory.
amalgamate_botan() {
    local modules=(
        aes asn1 auto_rng block cbc cmac ctr des dh dsa ecdh ecdsa eme_oaep eme_pkcs1 eme_raw
        emsa1 emsa_pkcs1 emsa_pssr emsa_raw filters gcm hash hash_id hmac mac md5 mgf1 mode_pad
        nist_keywrap pubkey rfc3394 rsa sha1 sha2_32 sha2_64 system_rng)
    rm -rf "$botan"
    mkdir -p "$botan"
    (cd "$botan" && IFS=, && python3 "$sources/botan/configure.py" \
        --os=mingw --cpu=x86_64 --cc=gcc --cc-bin=x86_64-w64-mingw32-g++-posix \
        --ar-command=x86_64-w64-mingw32-ar --amalgamation --minimized-build \
        --build-targets=static --without-documentation "--enable-modules=${modules[*]}")
}

# The version that upstream's configure script states.
softhsm_version() {
    sed -nE "s/^PACKAGE_VERSION='(.*)'$/\1/p" "$sources/softhsm2/configure"
}

try_module() {
    cp "$build/bin/softhsm2.dll" "$module.new"
    printf 'directories.tokendir = Z:%s\n' "$build" >"$build/probe.conf"
    SOFTHSM2_CONF="Z:$build/probe.conf" "$root/cmake/runwine.sh" \
        "$build/softhsm-probe.exe" "Z:$module.new"
    mv "$module.new" "$module"
}

fetch_source botan "$sources/botan"
fetch_source softhsm2 "$sources/softhsm2"
amalgamate_botan
cmake --fresh -G Ninja -S "$root/cmake/deps/softhsm" -B "$build" \
    --toolchain "$root/cmake/mingw-w64.cmake" \
    -DCMAKE_BUILD_TYPE=Release \
    -DBOTAN_AMALGAMATION="$botan" \
    -DSOFTHSM_SOURCES="$sources/softhsm2/src/lib" \
    -DSOFTHSM_VERSION="$(softhsm_version)" \
    -DP11KIT_INCLUDES="$root/build/deps/windows/include"
cmake --build "$build" --parallel 2
mkdir -p "$(dirname "$module")"
try_module
