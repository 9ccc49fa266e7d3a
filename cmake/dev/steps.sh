# shellcheck shell=bash
# Steps: commands with a name, a log, and one line that says how they ended. To be sourced; the
# caller sets root to the checkout.
: "${root:?}"

log_folder=$root/build/logs
stamp_folder=$root/build/deps/stamps

# step NAME COMMAND...: runs the command with its output in build/logs/NAME.log; if it fails, shows
# the end of the log and ends the program.
step() {
    local name=$1
    shift
    try_step "$name" "$@" || fail_step "$name"
}

# try_step NAME COMMAND...: the same, but returns the command's status instead of ending the program.
try_step() {
    local name=$1 log start=$SECONDS ticker status=0
    shift
    log=$(log_of "$name")
    mkdir -p "$log_folder"
    : >"$log"
    [[ ! -t 1 ]] || printf '%s ...' "$name"
    show_progress "$name" "$log" &
    ticker=$!
    # If Ctrl-C ends this process, the ticker would go on: bash starts it deaf to the signal.
    # shellcheck disable=SC2064
    trap "stop_ticker $ticker" EXIT
    "$@" </dev/null >"$log" 2>&1 8>&- || status=$?
    stop_ticker "$ticker"
    if ((status)); then
        report_step "$name" failed $((SECONDS - start))
    else
        report_step "$name" "done" $((SECONDS - start))
    fi
    return "$status"
}

stop_ticker() {
    kill "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
    trap - EXIT
}

# once NAME RESULT FILE... -- COMMAND...: a step that is skipped while the result exists, and the files and the
# compilers and libraries are what they were when the step last succeeded.
once() {
    local name=$1 result=$root/$2 files=() stamp print
    shift 2
    while [[ $1 != -- ]]; do
        files+=("$1")
        shift
    done
    shift
    stamp=$stamp_folder/${name// /-}
    print=$(versions 2>/dev/null; cd "$root" && sha256sum "${files[@]}")
    if [[ -e $result && -f $stamp && $(<"$stamp") == "$print" ]]; then
        report_step "$name" skipped 0
        return
    fi
    rm -f "$stamp"
    step "$name" "$@"
    mkdir -p "$stamp_folder"
    printf '%s\n' "$print" >"$stamp"
}

# jobs: how many compilers or tests to run at once: as many as there are processors to use, in a container too,
# and as many as have a gigabyte of memory each.
jobs() {
    local count quota period memory
    count=$(nproc)
    if read -r quota period 2>/dev/null </sys/fs/cgroup/cpu.max && [[ $quota != max ]]; then
        quota=$(((quota + period - 1) / period))
        count=$((quota < count ? quota : count))
    fi
    memory=$(awk '/^MemAvailable:/ { print int($2 / 1048576) }' /proc/meminfo)
    count=$((memory < count ? memory : count))
    printf '%s' "$((count > 1 ? count : 1))"
}

log_of() {
    printf '%s/%s.log' "$log_folder" "${1// /-}"
}

report_step() {
    local line
    printf -v line '%-36s %s, %d s' "$1" "$2" "$3"
    if [[ -t 1 ]]; then
        printf '\r\e[K%s\n' "$line"
    else
        printf '%s\n' "$line"
    fi
}

fail_step() {
    local log reason
    log=$(log_of "$1")
    reason=$(reason_of_failure "$log")
    {
        if [[ $reason ]]; then
            echo "dev: $1 failed: $reason"
        else
            echo
            echo "$1 failed. The end of its log:"
            tail -n 30 "$log" | cut -c 1-300 | sed 's/^/    /'
        fi
        echo "The whole log: $log"
    } >&2
    exit 1
}

# reason_of_failure LOG: in one line, if it is known: the disk is full, or the step has said it itself, in a
# line that begins with "dev: ".
reason_of_failure() {
    local folder free
    for folder in "$root" "${TMPDIR:-/tmp}" /var; do
        free=$(df --output=avail --block-size=1M "$folder" 2>/dev/null | tail -n 1) || continue
        if ((free < 20)); then
            echo "the disk is full: $((free)) MB are left in $folder"
            return
        fi
    done
    sed -n 's/^dev: //p' "$1" | tail -n 1
}

# Prints the progress of a step every second on a terminal, every half minute elsewhere.
show_progress() {
    local name=$1 log=$2 start=$SECONDS pause=30 form='%-36s %s %d s ...\n'
    if [[ -t 1 ]]; then
        pause=1
        form='\r\e[K%-36s %s %d s'
    fi
    # Waits by reading a pipe that nobody writes to. A sleep would outlive this process when it is
    # killed.
    exec 8>&- 7<> <(:)
    while true; do
        read -r -t "$pause" -u 7 || true
        # shellcheck disable=SC2059
        printf "$form" "$name" "$(progress_in "$log")" $((SECONDS - start))
    done
}

# The progress according to the log: ninja and ctest count; apt names each package three times.
progress_in() {
    awk '
        / newly installed,/ { total = 3 * $3; seen = 0 }
        total && /^(Get:|Unpacking |Setting up )/ { seen++; far = seen " of " total }
        match($0, /^\[[0-9]+\/[0-9]+\]/) || match($0, /^ *[0-9]+\/[0-9]+ Test/) {
            far = substr($0, RSTART, RLENGTH)
            gsub(/[^0-9\/]/, "", far)
            sub("/", " of ", far)
        }
        END { print far ? far "," : "" }' "$1"
}
