# shellcheck shell=bash
# The systems that the project is built and tested on, and what this one is. To be sourced.

# system_name: name and version, such as "debian 12".
system_name() {
    (
        ID='' VERSION_ID=''
        # shellcheck source=/dev/null
        . /etc/os-release 2>/dev/null || true
        printf '%s' "${ID:-unknown}${VERSION_ID:+ $VERSION_ID}"
    )
}

# check_system NAME: fails, with one line that says what is supported, on a system that is not.
check_system() {
    case $1 in
    'debian 12' | 'debian 13') ;;
    'ubuntu 24.04')
        echo "dev: Debian 12 and 13 are supported; nobody has tried $1" >&2
        ;;
    *)
        echo "dev: Debian 12 and 13 are supported, and this is $1. Try a container of debian:13" >&2
        return 1
        ;;
    esac
}

# boost_version: the version of Debian's Boost packages to use. It is the one that is installed, because
# Debian installs the headers of one version only; otherwise one that this system has.
boost_version() {
    local installed
    installed=$(sed -nE 's/^#define BOOST_LIB_VERSION "([0-9]+)_([0-9]+).*"/\1.\2/p' \
        /usr/include/boost/version.hpp 2>/dev/null) || true
    if [[ $installed ]]; then
        printf '%s' "$installed"
    elif [[ $(system_name) == 'debian 12' ]]; then
        printf 1.81
    else
        printf 1.83
    fi
}

# check_boost VERSION: fails, with one line, if it is too old: before 1.81 Boost.Filesystem looked at links with
# other functions, which the tests do not redirect.
check_boost() {
    [[ $(printf '%s\n' 1.81 "$1" | sort --version-sort | head -n 1) != 1.81 ]] || return 0
    echo "dev: Boost $1 is installed, and 1.81 is needed:" \
        "apt-get install libboost1.81-dev libboost-filesystem1.81-dev replaces it" >&2
    return 1
}

# versions: what a report of a failure has to name, in one line.
versions() {
    printf '%s: ' "$(system_name)"
    printf 'GCC %s, for Windows %s, ' \
        "$(g++ -dumpfullversion)" "$(x86_64-w64-mingw32-g++-posix -dumpfullversion | sed s/-posix//)"
    printf 'Wine %s, OpenSSL %s, Boost %s, SoftHSM %s\n' \
        "$(package_version wine)" "$(package_version libssl-dev)" \
        "$(package_version "libboost$(boost_version)-dev")" "$(package_version softhsm2)"
}

package_version() {
    dpkg-query --show --showformat='${Version}' "$1" 2>/dev/null || printf 'unknown'
}
