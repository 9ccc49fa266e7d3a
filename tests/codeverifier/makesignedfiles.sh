#!/usr/bin/env bash
# Makes the files whose signatures the tests verify:
# makesignedfiles.sh PROGRAM MODULE INSTALLER_SOURCE FOLDER
#
# A program, a cabinet and an installer, each of them unsigned and signed: by the test authority
# (signed), by an authority that nobody trusts (stranger), with a certificate that has expired
# (expired) or is for servers (misused), and changed after signing (tampered). A module is made as
# signed.dll only. authority.der is the certificate that the tests trust.
set -eEuo pipefail

program=$1 module=$2 installer_source=$3 folder=$4
keys=$folder.keys

# Certificates are signed with SHA-1 since Wine takes any chain below a leaf that is signed with
# SHA-256; the digest of the files is SHA-256.
make_authority() {
    local name=$1
    # The name is of this run only, lest a root that an interrupted test has left behind be taken
    # for this one.
    openssl req -x509 -newkey rsa:2048 -nodes -sha1 -days 7300 -subj "/CN=Test $name $(openssl rand -hex 8)" \
        -addext basicConstraints=critical,CA:TRUE \
        -addext keyUsage=critical,keyCertSign,cRLSign \
        -keyout "$keys/$name.key" -out "$keys/$name.pem"
}

# make_signer NAME AUTHORITY USAGE NOT_BEFORE NOT_AFTER
make_signer() {
    local name=$1 authority=$2 usage=$3 not_before=$4 not_after=$5
    openssl req -new -newkey rsa:2048 -nodes -subj "/CN=Test $name" \
        -keyout "$keys/$name.key" -out "$keys/$name.csr"
    : >"$keys/index.txt"
    cat >"$keys/ca.cnf" <<EOF
[ca]
default_ca = authority
[authority]
database = $keys/index.txt
new_certs_dir = $keys
rand_serial = yes
default_md = sha1
unique_subject = no
policy = any
x509_extensions = signer
[any]
commonName = supplied
[signer]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = $usage
EOF
    openssl ca -batch -notext -config "$keys/ca.cnf" -cert "$keys/$authority.pem" \
        -keyfile "$keys/$authority.key" -in "$keys/$name.csr" \
        -startdate "$not_before" -enddate "$not_after" -out "$keys/$name.pem"
    # The authority's certificate goes into the signature, as that of a real one does.
    cat "$keys/$authority.pem" >>"$keys/$name.pem"
}

make_unsigned() {
    cp "$program" "$folder/unsigned.exe"
    printf 'genuine contents\n' >"$keys/signee.txt"
    gcab --create --nopath "$folder/unsigned.cab" "$keys/signee.txt"
    wixl --output "$folder/unsigned.msi" "$installer_source"
}

# sign_file SIGNER UNSIGNED SIGNED
sign_file() {
    osslsigncode sign -certs "$keys/$1.pem" -key "$keys/$1.key" -h sha256 -in "$2" -out "$3"
}

# sign NAME SIGNER
sign() {
    local name=$1 signer=$2 type
    for type in exe cab msi; do
        sign_file "$signer" "$folder/unsigned.$type" "$folder/$name.$type"
    done
}

tamper() {
    local type
    for type in exe cab msi; do
        LC_ALL=C sed 's/genuine contents/altered contents/' "$folder/signed.$type" \
            >"$folder/tampered.$type"
        ! cmp --silent "$folder/signed.$type" "$folder/tampered.$type" ||
            { echo "signed.$type does not contain its marker" >&2; return 1; }
    done
}

rm -rf "$folder" "$keys"
mkdir -p "$folder" "$keys"

# The tools have much to say, which is worth reading only if one of them fails.
exec 3>&2 >"$folder.log" 2>&1
trap 'cat "$folder.log" >&3' ERR
make_authority authority
make_authority stranger
make_signer signed authority codeSigning 20200101000000Z 20491231235959Z
make_signer strangers stranger codeSigning 20200101000000Z 20491231235959Z
make_signer expired authority codeSigning 20200101000000Z 20210101000000Z
make_signer misused authority serverAuth 20200101000000Z 20491231235959Z
make_unsigned
sign signed signed
sign_file signed "$module" "$folder/signed.dll"
sign stranger strangers
sign expired expired
sign misused misused
tamper
# A link to a file without an extension, and beside it the file that a loader opens by that name.
mkdir "$folder/linked"
cp "$folder/signed.dll" "$folder/linked/module"
cp "$module" "$folder/linked/module.dll"
ln -s linked/module "$folder/link.dll"
openssl x509 -in "$keys/authority.pem" -outform DER -out "$folder/authority.der"
printf 'This is no program.\n' >"$folder/text.exe"
: >"$folder/empty.exe"
# Nothing can be signed in the authorities' names any more.
rm -r "$keys"
