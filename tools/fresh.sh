#!/usr/bin/env bash
# Runs commands of ./dev on a fresh machine: fresh.sh RELEASE COMMAND...
#
# The machine is a minimal Debian of the release (12 or 13) in a folder, with git and a clone of the last
# commit, and with no file and no process of this one. It is gone afterwards. Ends with 0 if all commands
# passed, with 1 if one failed, and with 75 if the machine could not be made, which says nothing about them.
set -euo pipefail

readonly cannot_make=75
declare -rA suites=([12]=bookworm [13]=trixie)

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
release=${1:-}
suite=${suites[$release]:-}
commands=("${@:2}")

give_up() {
    echo "fresh: $1" >&2
    exit "$cannot_make"
}

check_conditions() {
    [[ $suite && ${#commands[@]} -gt 0 ]] || {
        echo "usage: fresh.sh 12|13 COMMAND..." >&2
        exit 2
    }
    (($(id -u) == 0)) || give_up "making a machine in a folder takes root"
    [[ $(type -P debootstrap) ]] || give_up "debootstrap is not installed"
    git -C "$root" rev-parse --quiet --verify HEAD >/dev/null 2>&1 ||
        give_up "this is no git checkout, so there is nothing to clone"
    unshare --mount --pid --fork sh -c 'mount --make-rprivate / && mount -t proc proc /proc' 2>/dev/null ||
        give_up "this machine does not allow new namespaces and mounts"
    local free
    free=$(df --output=avail --block-size=1G "$work" | tail -n 1)
    ((free >= 10)) || give_up "it takes 10 GB of space, and $work has $((free)) GB left"
    [[ ! $(git -C "$root" status --porcelain) ]] ||
        echo "fresh: what is not committed is not tested" >&2
}

make_machine() {
    debootstrap --variant=minbase --include=ca-certificates,git "$suite" "$machine" \
        >"$work/debootstrap.log" 2>&1 || {
        tail -n 5 "$work/debootstrap.log" >&2
        give_up "debootstrap cannot make a Debian $release"
    }
    local mirror
    mirror=$(sed -nE 's/^deb ([^ ]+) .*/\1/p' "$machine/etc/apt/sources.list")
    cat >>"$machine/etc/apt/sources.list" <<LIST
deb $mirror $suite-updates main
deb ${mirror%/debian}/debian-security $suite-security main
LIST
    # As in the images of containers: a machine that is gone tomorrow need not survive a power failure.
    echo force-unsafe-io >"$machine/etc/dpkg/dpkg.cfg.d/unsafe-io"
    git clone --quiet "$root" "$machine/checkout" || give_up "the checkout cannot be cloned"
}

# in_machine COMMAND...: with the machine's own processes, all of which end with the command. Takes the
# place of the shell that it is called in.
in_machine() {
    # The script's variables are those of the inner shell.
    # shellcheck disable=SC2016
    exec unshare --mount --pid --fork --kill-child bash -c '
        set -e
        machine=$1
        shift
        mount --make-rprivate /
        mount -t proc proc "$machine/proc"
        mount -t sysfs -o ro sysfs "$machine/sys"
        mount -t devpts -o newinstance,ptmxmode=0666,mode=620 devpts "$machine/dev/pts"
        mount -t tmpfs tmpfs "$machine/dev/shm"
        exec chroot "$machine" env --ignore-environment HOME=/root TERM=dumb \
            PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin "$@"' \
        in_machine "$machine" "$@" </dev/null
}

run_commands() {
    local command start log status result=0
    local lines=()
    for command in "${commands[@]}"; do
        echo "== Debian $release: ./dev $command"
        log=$work/$command.log start=$SECONDS status=passed
        in_machine bash -c "cd /checkout && ./dev $command" 2>&1 | tee "$log" &
        # Unlike a command in the foreground, a wait ends at once when a signal comes.
        wait %% || status=failed result=1
        lines+=("Debian $release: ./dev $command $status in $((SECONDS - start)) s$(totals_in "$log")")
    done
    echo
    printf '%s\n' "${lines[@]}"
    return "$result"
}

totals_in() {
    sed -nE 's/^([0-9]+ passed, [0-9]+ failed.*)/: \1/p' "$1" | tail -n 1
}

work=$(mktemp --directory "${TMPDIR:-/var/tmp}/fresh-XXXXXX")
end() {
    local job
    for job in $(jobs -p); do
        # unshare holds back every other signal; what it started is killed with it.
        kill -KILL "$job" && wait "$job" || true
    done
    rm -rf --one-file-system "$work"
} 2>/dev/null
trap end EXIT
trap 'exit 130' INT TERM
machine=$work/machine
check_conditions
echo "== Debian $release: debootstrap"
make_machine
run_commands
