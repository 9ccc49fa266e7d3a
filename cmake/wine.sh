# shellcheck shell=bash
# Wine with a prefix of the project's own under build/, and one server for many programs. To be sourced;
# the caller sets root to the checkout.
: "${root:?}"

use_wine_prefix() {
    export WINEPREFIX=$root/build/wineprefix
    export WINEARCH=win64
    export WINEDEBUG=${WINEDEBUG:--all}
    # Without the debugger a crash ends the program at once.
    export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-winedbg.exe=d;winex11.drv,winewayland.drv=d}
    unset DISPLAY WAYLAND_DISPLAY
    # In other locales than UTF-8 Wine does not find all file names.
    export LC_ALL=C.UTF-8
    # For tests of packages: a program that comes with all its DLLs must not find others.
    [[ ! ${CSU_OWN_DLLS_ONLY-} ]] || return 0
    export WINEPATH
    WINEPATH=${WINEPATH:+$WINEPATH;}$(compiler_dll_folders)
}

# The folders with the DLLs of the compiler's run-time library, as a Windows search path.
compiler_dll_folders() {
    local dll file folders=
    for dll in libstdc++-6.dll libwinpthread-1.dll; do
        file=$(x86_64-w64-mingw32-g++-posix "-print-file-name=$dll")
        folders+=${folders:+;}Z:$(dirname "$(readlink -f "$file")")
    done
    printf '%s' "$folders"
}

# Starts the server and Wine's services without the caller's standard streams. They would keep an
# inherited pipe open, and whoever reads from it would wait for them to end. The server ends by itself
# a minute after its last program.
start_wine_server() {
    (
        flock 9
        # Fails if the server runs already.
        wineserver -p60 9>&- || exit 0
        wine wineboot 9>&-
    ) 9>"$WINEPREFIX.start.lock" </dev/null >/dev/null 2>&1
}

# Stops the server of the project's prefix, unless a program still uses it.
stop_wine_server() {
    flock --exclusive --nonblock "$WINEPREFIX.lock" wineserver -k </dev/null >/dev/null 2>&1 || true
}
