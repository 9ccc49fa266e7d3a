# shellcheck shell=bash
# Wine as the project uses it, to be sourced: a prefix of its own under build/, one server for many
# programs. The caller sets root to the checkout.
: "${root:?}"

use_wine_prefix() {
    export WINEPREFIX=$root/build/wineprefix
    export WINEARCH=win64
    export WINEDEBUG=${WINEDEBUG:--all}
    # Without the debugger a crash ends the program at once.
    export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-winedbg.exe=d}
    # Other locales than UTF-8 lose the file names that they cannot say.
    export LC_ALL=C.UTF-8
    # A program that comes with all its DLLs must find them without ours.
    [[ ! ${CSU_OWN_DLLS_ONLY-} ]] || return 0
    export WINEPATH
    WINEPATH=${WINEPATH:+$WINEPATH;}$(compiler_dll_folders)
}

# Where the compiler keeps the DLLs of its run-time library, as Wine writes paths.
compiler_dll_folders() {
    local dll file folders=
    for dll in libstdc++-6.dll libwinpthread-1.dll; do
        file=$(x86_64-w64-mingw32-g++-posix "-print-file-name=$dll")
        folders+=${folders:+;}Z:$(dirname "$(readlink -f "$file")")
    done
    printf '%s' "$folders"
}

# Starts the server and Wine's services apart from the caller's standard streams: what they would
# inherit they would keep open, and whoever reads the other end would wait for them. The server
# ends by itself a minute after its last program.
start_wine_server() {
    (
        flock 9
        # Fails if there is a server already.
        wineserver -p60 9>&- || exit 0
        wine wineboot 9>&-
    ) 9>"$WINEPREFIX.start.lock" </dev/null >/dev/null 2>&1
}

# Stops the server of the project's prefix, unless a program of it still runs.
stop_wine_server() {
    flock --exclusive --nonblock "$WINEPREFIX.lock" wineserver -k </dev/null >/dev/null 2>&1 || true
}
