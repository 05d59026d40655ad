#!/usr/bin/env bash
# Makes a throwaway code-signing identity for builds that are given no real
# one: a self-signed test CA and a code-signing certificate it issues, both
# named as test certificates, so nothing signed with them passes for a release.
#
#   make-test-certificate.sh <folder> [<not before> <not after> [<extended key usage>]]
#
# Writes into <folder>: test-ca.pem (the CA certificate, for verifying) and
# test-signing.p12 (key, certificate and CA, empty password, for signing).
# The key is new on every run, so signatures differ between two folders made
# this way; scripts/check-reproducible.sh makes one and shares it.
#
# Validity runs from 1970 to 2099 rather than from today: signatures carry the
# commit's time (SOURCE_DATE_EPOCH), which lies before the day the certificate
# is made, and a verifier checks the chain at that time. The tests make
# certificates that signing must refuse with other dates (YYYYMMDDHHMMSSZ)
# or another extended key usage (an openssl name such as emailProtection).
set -euo pipefail
if [ $# -ne 1 ] && [ $# -ne 3 ] && [ $# -ne 4 ]; then
  echo "usage: $0 <folder> [<not before> <not after> [<extended key usage>]]" >&2
  exit 2
fi
out="$1"
start="${2:-19700101000000Z}" end="${3:-20991231235959Z}" usage="${4:-codeSigning}"
mkdir -p "$out"
work="$(mktemp -d "$out/.make.XXXXXX")"
trap 'rm -rf "$work"' EXIT

readonly CA_NAME="/O=Cinebar Test Signing/CN=Cinebar Test CA - not trusted"
readonly SIGNER_NAME="/O=Cinebar Test Signing/CN=Cinebar Test Signing - not trusted"

# openssl ca is the one openssl 3.0 command that takes fixed start and end dates.
mkdir "$work/issued"
: >"$work/index.txt"
cat >"$work/ca.cnf" <<CNF
[ca]
default_ca = test_ca
[test_ca]
dir = $work
database = \$dir/index.txt
new_certs_dir = \$dir/issued
serial = \$dir/serial
default_md = sha256
policy = any
unique_subject = no
email_in_dn = no
copy_extensions = none
[any]
organizationName = supplied
commonName = supplied
[ca_ext]
basicConstraints = critical, CA:true, pathlen:0
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
[signer_ext]
basicConstraints = critical, CA:false
keyUsage = critical, digitalSignature
extendedKeyUsage = critical, $usage
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
CNF

ca() { openssl ca -batch -notext -config "$work/ca.cnf" -startdate "$start" -enddate "$end" "$@" 2>"$work/ca.log" ||
  { cat "$work/ca.log" >&2; exit 1; }; }

openssl genpkey -quiet -algorithm RSA -pkeyopt rsa_keygen_bits:3072 -out "$work/ca.key"
openssl req -new -key "$work/ca.key" -subj "$CA_NAME" -out "$work/ca.csr"
echo 01 >"$work/serial"
ca -selfsign -keyfile "$work/ca.key" -extensions ca_ext -in "$work/ca.csr" -out "$work/ca.pem"

openssl genpkey -quiet -algorithm RSA -pkeyopt rsa_keygen_bits:3072 -out "$work/signer.key"
openssl req -new -key "$work/signer.key" -subj "$SIGNER_NAME" -out "$work/signer.csr"
ca -cert "$work/ca.pem" -keyfile "$work/ca.key" -extensions signer_ext -in "$work/signer.csr" \
  -out "$work/signer.pem"

openssl pkcs12 -export -inkey "$work/signer.key" -in "$work/signer.pem" -certfile "$work/ca.pem" \
  -name "Cinebar Test Signing - not trusted" -passout pass: -out "$work/test-signing.p12"
mv "$work/ca.pem" "$out/test-ca.pem"
mv "$work/test-signing.p12" "$out/test-signing.p12"
