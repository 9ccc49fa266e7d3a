# shellcheck shell=bash
# Fetching Debian source packages without changing the system's apt configuration. To be sourced; the
# caller sets root to the checkout.
: "${root:?}"

# fetch_source PACKAGE FOLDER [PATTERN]: unpacks the upstream sources of a Debian source package into
# FOLDER, or only the files whose path in the archive matches PATTERN.
fetch_source() {
    local package=$1 folder=$2 pattern=${3:-*} apt_root=$root/build/deps/apt tarball
    prepare_apt "$apt_root"
    mkdir -p "$apt_root/download"
    (cd "$apt_root/download" && apt-get --config-file "$apt_root/apt.conf" \
        source --download-only --tar-only --only-source "$package") || {
        echo "dev: the sources of $package cannot be fetched." \
            "Is there a network, and does the package mirror have source packages?" >&2
        return 1
    }
    tarball=$(find "$apt_root/download" -name "${package}_*.orig.tar.*" ! -name '*.asc' | sort -V | tail -n 1)
    [[ -n $tarball ]] || { echo "apt-get fetched no source archive of $package" >&2; return 1; }
    rm -rf "$folder"
    mkdir -p "$folder"
    tar -xf "$tarball" -C "$folder" --strip-components=1 --wildcards "$pattern"
}

# An apt configuration of our own, with the source packages of the system's package sources. The index
# is fetched again after a day: mirrors remove a package when there is a newer one.
prepare_apt() {
    local apt_root=$1
    [[ ! $(find "$apt_root/ready" -mtime -1 2>/dev/null) ]] || return 0
    rm -rf "$apt_root"
    mkdir -p "$apt_root"/{lists/partial,archives/partial,sources.d}
    derive_source_entries "$apt_root/sources.d"
    cat >"$apt_root/apt.conf" <<EOF
Dir::Etc::SourceList "/dev/null";
Dir::Etc::SourceParts "$apt_root/sources.d";
Dir::State::Lists "$apt_root/lists";
Dir::Cache "$apt_root";
Dir::Cache::Archives "$apt_root/archives";
APT::Sandbox::User "root";
EOF
    # It fails if any source does, even one that has none of the packages: whether those can be had
    # shows when they are fetched.
    if apt-get --config-file "$apt_root/apt.conf" -o Acquire::Retries=3 -o APT::Update::Error-Mode=any update; then
        touch "$apt_root/ready"
    fi
}

# The configured one-line and deb822 entries, with deb-src instead of deb.
derive_source_entries() {
    local target=$1 file
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [[ -s $file ]] || continue
        sed -nE 's/^[[:space:]]*deb([[:space:]])/deb-src\1/p' "$file" >"$target/$(basename "$file" .list).list"
    done
    for file in /etc/apt/sources.list.d/*.sources; do
        [[ -s $file ]] || continue
        sed -E 's/^Types:.*/Types: deb-src/I' "$file" >"$target/$(basename "$file")"
    done
}
