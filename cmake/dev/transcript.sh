#!/usr/bin/env bash
# Copies the recorded demo into docs/, and makes pictures of it there: transcript.sh FOLDER
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
recorded=$(cd "$1" && pwd)

mkdir -p "$root/docs/images"
"$root/tests/demo/picture.py" "$root/docs/images/status.svg" certstoreupdate \
    "$recorded/status.json"
"$root/tests/demo/picture.py" "$root/docs/images/sync.svg" certstoreupdate \
    "$recorded/"{rehearsal,sync,sync-again}.json
sed '/./,$!d' "$recorded/transcript.txt" >"$root/docs/transcript.txt"
