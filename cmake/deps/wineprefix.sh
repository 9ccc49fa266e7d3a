#!/usr/bin/env bash
# Makes build/wineprefix, the Wine prefix that all Windows programs of the project run in.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=cmake/wine.sh
source "$root/cmake/wine.sh"

use_wine_prefix
mkdir -p "$root/build"
exec 9>"$WINEPREFIX.make.lock"
flock 9
[[ -f $WINEPREFIX/ready ]] && exit

# Starts again if an earlier run did not finish, whose server may still run.
if [[ -d $WINEPREFIX ]]; then
    wineserver -k 9>&- || true
    wineserver -w 9>&-
fi
rm -rf "$WINEPREFIX"
mkdir -p "$WINEPREFIX"
# The project needs neither .NET nor HTML, and Wine would ask for their installers.
WINEDLLOVERRIDES="$WINEDLLOVERRIDES;mscoree,mshtml=d" wine wineboot --init \
    </dev/null >"$WINEPREFIX/wineboot.log" 2>&1 9>&-
wine reg add 'HKCU\Software\Wine' /v Version /d win10 /f \
    </dev/null >>"$WINEPREFIX/wineboot.log" 2>&1 9>&-
# Nothing here has a window. Drivers for screens complain on the terminal of whoever starts the first
# program that there is none.
wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f \
    </dev/null >>"$WINEPREFIX/wineboot.log" 2>&1 9>&-
# The server writes the registry to disk when it ends.
wineserver -k 9>&- || true
wineserver -w 9>&-
touch "$WINEPREFIX/ready"
