#!/usr/bin/env bash
# Runs a Windows program under Wine, with the project's own prefix: runwine.sh PROGRAM [ARGUMENT...]
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=cmake/wine.sh
source "$root/cmake/wine.sh"

use_wine_prefix
[[ -f $WINEPREFIX/ready ]] || "$root/cmake/deps/wineprefix.sh"
start_wine_server
# stop_wine_server takes this lock exclusively, so it stops no server that a program uses.
exec flock --shared --close "$WINEPREFIX.lock" wine "$@"
