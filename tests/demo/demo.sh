#!/usr/bin/env bash
# The main job on real parts: a SoftHSM token, the certificate store in the registry, and the
# unmodified program. Every claim is checked; the first one that does not hold ends the demo with 1.
#   demo.sh                      for people
#   demo.sh --transcript FOLDER  the same, written to FOLDER/transcript.txt as it would be seen on a
#                                terminal of 120 columns, and screens for picture.py beside it
# Environment: CSU_BUILD, CSU_WINE, CSU_SOFTHSM_DLL, CSU_NATIVE_SOFTHSM, WINEPREFIX (./dev demo sets
# them).
set -euo pipefail

transcript=
if [[ ${1-} == --transcript ]]; then
    mkdir -p "$2"
    transcript=$(cd "$2" && pwd)
    exec >"$transcript/transcript.txt"
fi

store=CSU-Demo
csp="Demo Token CSP"
label="Demo token"
export DEMO_PIN=1234

signing_id=01A2FF
encryption_id=02B3
renewal_id=03C4

record=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/record.py
work=$(dirname "$CSU_BUILD")/demo
tools=$CSU_BUILD/bin
# The same folder, as the program sees it.
drive_folder=$WINEPREFIX/drive_c/Demo
windows_folder='C:\Demo'

# --- telling and checking ---------------------------------------------------------------------

if [[ -t 1 && -z ${NO_COLOR-} ]]; then
    bold=$'\e[1m' plain=$'\e[0m'
else
    bold='' plain=''
fi

step=0
chapter() { printf '\n%s%d. %s%s\n\n' "$bold" $((step += 1)) "$1" "$plain"; }
say() { printf '%s\n' "$*"; }
checked() { printf '   ok: %s\n' "$1"; }
fail() {
    printf '\nthe demo failed: %s\n' "$1" >&2
    exit 1
}

# show TITLE COMMAND...: what a Windows program printed, shown and kept. For a transcript it prints
# on a terminal; the screen is kept under the name in the variable screen.
shown=
on_terminal=()
show() {
    local title=$1 on_terminal=()
    shift
    # Two columns are for the indentation.
    [[ -z $transcript ]] ||
        on_terminal=("$record" 118 "$transcript/${screen:-other}.json" "$title")
    say "\$ $title"
    shown=$("$@" 2>&1) || fail "it ended with $?: $shown"
    shown=${shown//$'\r'/}
    printf '%s\n' "$shown" | sed 's/^\(.\)/  \1/'
}

expect() {
    [[ $shown == *"$1"* ]] || fail "expected: $1"
    checked "$2"
}
expect_not() {
    [[ $shown != *"$1"* ]] || fail "not expected: $1"
    checked "$2"
}

# --- the parts --------------------------------------------------------------------------------

# The program as it is shipped. Wine's stores lack some of what Windows' do, so the launcher gives
# it the layer that cures that; on Windows it would be started directly.
certstoreupdate() {
    "${on_terminal[@]}" "$CSU_WINE" \
        "$tools/winecompat-launcher.exe" "$tools/certstoreupdate.exe" "$@"
}
with_store() { certstoreupdate "$@" --csp "$csp" --store "$store"; }
with_token() {
    SOFTHSM2_CONF="$windows_folder\\windows.conf" with_store "$@" \
        --module "$windows_folder\\token.dll" --allow-unsigned-module --pin-env DEMO_PIN
}
store_tool() { "$CSU_WINE" "$tools/showstore.exe" "$@"; }

# The CSP of the demo: a name that is registered, with nothing behind it.
csp_key="HKLM\\Software\\Microsoft\\Cryptography\\Defaults\\Provider\\$csp"
registry() { "$CSU_WINE" reg "$@" /f >>"$work/registry.log" 2>&1; }

softhsm() { SOFTHSM2_CONF=$work/native.conf softhsm2-util "$@" >>"$work/token.log" 2>&1; }
token() {
    SOFTHSM2_CONF=$work/native.conf pkcs11-tool --module "$CSU_NATIVE_SOFTHSM" \
        --token-label "$label" --login --pin "$DEMO_PIN" "$@" >>"$work/token.log" 2>&1 ||
        fail "the token refused; see $work/token.log"
}

# certificate NAME SUBJECT EXTENSIONS [ISSUER]: NAME.der with a key of its own, valid at the same
# times whenever the demo runs.
certificate() {
    local name=$1 subject=$2 extensions=$3 issuer=${4-}
    openssl req -utf8 -newkey rsa:2048 -nodes -keyout "$name.key" -subj "$subject" -out "$name.csr" \
        2>/dev/null
    local signer=(-selfsign -keyfile "$name.key")
    [[ -z $issuer ]] || signer=(-cert "$issuer.pem" -keyfile "$issuer.key")
    openssl ca -config "$work/authority.conf" -batch -notext -utf8 -md sha256 \
        -startdate 20240101000000Z -enddate 20491231235959Z -preserveDN \
        "${signer[@]}" -extfile <(printf '%s\n' "$extensions") -in "$name.csr" -out "$name.pem" \
        2>>"$work/authority.log" || fail "no certificate could be made; see $work/authority.log"
    openssl x509 -in "$name.pem" -outform DER -out "$name.der"
    openssl pkcs8 -topk8 -nocrypt -in "$name.key" -outform DER -out "$name.key.der"
}
put_certificate() { token --write-object "$1.der" --type cert --id "$2" --label "$3"; }
put_key() { token --write-object "$1.key.der" --type privkey --id "$2" --label "$3"; }

clear_up() {
    mkdir -p "$work"
    store_tool erase "$store" >/dev/null 2>&1 || true
    registry delete "$csp_key" || true
    rm -rf "$work" "$drive_folder"
}

make_folder() {
    mkdir -p "$work/tokens"
    ln -s "$work" "$drive_folder"
    cp "$CSU_SOFTHSM_DLL" "$work/token.dll"
    echo "directories.tokendir = $work/tokens" >"$work/native.conf"
    printf "directories.tokendir = %s\n" "$windows_folder\\tokens" >"$work/windows.conf"
    cat >"$work/authority.conf" <<EOF
[ca]
default_ca = demo
[demo]
database = $work/issued.txt
new_certs_dir = $work
unique_subject = no
rand_serial = yes
policy = any
[any]
commonName = supplied
EOF
    : >"$work/issued.txt"
}

make_token() {
    softhsm --init-token --free --label "$label" --pin "$DEMO_PIN" --so-pin 567890 ||
        fail "no token could be made; see $work/token.log"

    cd "$work"
    certificate root "/O=Demo/CN=Demo Root" $'basicConstraints=critical,CA:TRUE\nkeyUsage=critical,keyCertSign,cRLSign'
    certificate issuing "/O=Demo/CN=Demo Issuing CA" $'basicConstraints=critical,CA:TRUE\nkeyUsage=critical,keyCertSign,cRLSign' root
    certificate signing "/O=Demo/CN=Zoë Ångström" 'keyUsage=critical,digitalSignature,nonRepudiation' issuing
    certificate encryption "/O=Demo/CN=Zoë Ångström" 'keyUsage=critical,keyEncipherment' issuing
    certificate renewal "/O=Demo/CN=Zoë Ångström VPN" 'keyUsage=critical,digitalSignature,keyEncipherment' issuing
    certificate partner "/O=Partner/CN=A partner" 'keyUsage=critical,keyEncipherment' issuing
    certificate foreign "/O=Elsewhere/CN=Somebody else's" 'keyUsage=critical,digitalSignature' issuing

    put_certificate root AA "Root"
    put_certificate issuing BB "Issuing CA"
    put_certificate signing "$signing_id" "Signature"
    put_key signing "$signing_id" "Signature"
    put_certificate encryption "$encryption_id" ""
    put_key encryption "$encryption_id" "Encryption"
    put_certificate renewal "$renewal_id" "VPN"
    put_key renewal "$renewal_id" "VPN"
    put_certificate partner CC "Partner"
}

# --- the story --------------------------------------------------------------------------------

clear_up
trap clear_up EXIT
make_folder

chapter "A token and a store"
say "A SoftHSM token with three keys and their certificates, a root, an issuing CA and a partner's"
say "certificate. In the store \"$store\" lies a certificate of another program. The CSP"
say "\"$csp\" is installed. What each command below is given, too:"
say "    --csp \"$csp\" --store $store"
say "and, where it needs the token:"
say "    --module $windows_folder\\token.dll --allow-unsigned-module --pin-env DEMO_PIN"
say
make_token
registry add "$csp_key" /v Type /t REG_DWORD /d 1 || fail "the CSP could not be registered"
show "certstoreupdate csps" certstoreupdate csps
expect "$csp" "the demo's CSP is installed"
store_tool add "$store" "Z:$work/foreign.der"
show "what is in the store" store_tool list "$store"
foreign_before=$shown

chapter "Token and store side by side"
show "certstoreupdate status" with_token status
expect "missing" "the keys' certificates are missing in the store"
expect "token only" "those without a key are not for the store"

chapter "Synchronise"
screen=rehearsal show "certstoreupdate sync --dry-run" with_token sync --dry-run
show "what is in the store" store_tool list "$store"
[[ $shown == "$foreign_before" ]] || fail "the rehearsal has changed the store"
checked "the rehearsal has changed nothing"
screen=sync show "certstoreupdate sync" with_token sync

chapter "What was registered, read by another program that knows only CryptoAPI"
show "what is in the store" store_tool list "$store"
# entry FRIENDLY_NAME ID KEY_SPEC: everything that a registration writes for one certificate.
entry() {
    printf 'friendly name  %s\n  container      CKAIDHEX:%s\n  CSP            %s\n  key spec       %s\n  binding        "CKAIDHEX:%s\\n%s\\n"' \
        "$1" "$2" "$csp" "$3" "$2" "$csp"
}
expect "$(entry Signature "$signing_id" "2 (signature)")" \
    "the label as friendly name, container, CSP, a key for signatures, the record of both"
expect "$(entry "Zoë Ångström" "$encryption_id" "1 (key exchange)")" \
    "the subject's name where there is no label, a key for key exchange"
expect "$(entry VPN "$renewal_id" "1 (key exchange)")" \
    "a key for both counts as one for key exchange"
expect "$foreign_before" "the other program's certificate is as it was"
registered=$shown

chapter "Synchronise again: nothing to do"
screen=sync-again show "certstoreupdate sync" with_token sync
expect "nothing to do" "the program found nothing to change"
show "what is in the store" store_tool list "$store"
[[ $shown == "$registered" ]] || fail "the store has changed"
checked "the store is exactly as before"

chapter "A certificate leaves the token, and so the store"
token --delete-object --type cert --id "$renewal_id"
screen=status show "certstoreupdate status" with_token status
expect "stale" "its entry in the store is stale"
show "certstoreupdate sync" with_token sync
show "what is in the store" store_tool list "$store"
expect_not "CKAIDHEX:$renewal_id" "the entry is gone"
expect "CKAIDHEX:$signing_id" "the others stay"
expect "$foreign_before" "the other program's certificate is as it was"

chapter "Clean up"
show "certstoreupdate clean" with_store clean
show "what is in the store" store_tool list "$store"
[[ $shown == "$foreign_before" ]] || fail "the store is not as it was at the beginning"
checked "only the other program's certificate is left"

printf '\n%sAll of it is as it should be.%s\n' "$bold" "$plain"
