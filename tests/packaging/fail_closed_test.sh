#!/usr/bin/env bash
# Signing and publishing that fail closed, one case per run: settings (the build signs with the
# environment it runs in, re-signing when it changes), certificate (one outside its validity or not
# for code signing refused; a signature or time stamp that does not verify against the configured
# CAs not kept), timestamp (a server that never answers costs its time limit, then the next is
# asked), kill (no secret and no output left), publish (dist/ replaced whole or left as it was; sums
# that check and signatures that verify), token (the module, both installers and the uninstaller
# signed through a PKCS#11 token and time-stamped; a wrong PIN fails).
# shellcheck disable=SC2317  # the helpers run through check
here="$(dirname "${BASH_SOURCE[0]}")"
# shellcheck source=tests/packaging/checks.sh
source "$here/checks.sh"
need CINEBAR_PACKAGING_DIR CINEBAR_UNSIGNED_MODULE CINEBAR_SOFTHSM2 CINEBAR_STAGE_DIR CINEBAR_WINE64 CINEBAR_INSTALLER
# shellcheck source=tests/packaging/signing_fixtures.sh
source "$here/signing_fixtures.sh"
# shellcheck source=tests/packaging/wine.sh
source "$here/wine.sh"
# The signing commands see only what a case sets, and keep their scratch files in $work/tmp.
unset "${!CINEBAR_SIGN_@}"
mkdir "$work/tmp" "$work/out"
export TMPDIR="$work/tmp"
# The build date: two days ago, so that a certificate can start between it and now.
epoch="$work/epoch"
date -u -d '-2 days' +%s >"$epoch"
yesterday="$(date -u -d '-1 day' +%Y%m%d%H%M%SZ)"

# sign <output>: signs the unsigned module into <output>.
signing=("$CINEBAR_PACKAGING_DIR/sign.sh" "$OSSLSIGNCODE" "$epoch" "$PRODUCT" https://example.invalid/
         "$CINEBAR_UNSIGNED_MODULE")
sign() { "${signing[@]}" "$1"; }

case_settings() {
  local settings="$work/settings.env"
  resolve() {
    cmake "-DCONFIGURED=$work/configured.cmake" "-DOUTPUT=$settings" "-DVERIFY_CA=$work/verify-ca.pem" \
      "-DTEST_PKCS12=$work/signing/test-signing.p12" "-DTEST_CAFILE=$work/signing/test-ca.pem" \
      -P "$CINEBAR_PACKAGING_DIR/signing_settings.cmake" >/dev/null 2>"$work/stderr"
  }
  # shellcheck source=/dev/null
  setting() { (source "$settings" && printf '%s' "${!1}"); }
  unchanged() { [ "$(stat -c %Y "$settings")" = 0 ]; }
  # resolved <case> <signs again: yes|no> [<setting>=<value>...]: the build reads the environment
  resolved() {
    local what="$1" again="$2" pair
    shift 2
    touch -d @0 "$settings"
    check "$what: read by the build" resolve
    for pair; do check "$what: ${pair%%=*}" equals "$(setting "${pair%%=*}")" "${pair#*=}"; done
    if [ "$again" = yes ]; then check "$what: signs again" not unchanged; else check "$what: signs nothing" unchanged; fi
  }
  make_token
  # A tree configured without a key: the cache holds empty settings but for one time-stamp server.
  printf 'set(configured_CINEBAR_SIGN_TIMESTAMP_URL [==[http://configured.invalid/]==])\n' >"$work/configured.cmake"
  resolved "no key" yes "CINEBAR_SIGN_PKCS12=$work/signing/test-signing.p12" \
    "CINEBAR_SIGN_TIMESTAMP_URL=http://configured.invalid/"
  check "no key: the test CA" cmp -s "$work/verify-ca.pem" "$work/signing/test-ca.pem"
  use_token
  export CINEBAR_SIGN_TIMESTAMP_URL="http://first.invalid/"
  resolved "exports after configuring" yes "CINEBAR_SIGN_PKCS11_MODULE=$CINEBAR_SOFTHSM2" \
    "CINEBAR_SIGN_PKCS11_KEY=$CINEBAR_SIGN_PKCS11_KEY" "CINEBAR_SIGN_TIMESTAMP_URL=http://first.invalid/"
  check "the PIN is not written" not grep -qF "$PIN" "$settings"
  resolved "the same environment again" no
  export CINEBAR_SIGN_TIMESTAMP_URL="http://second.invalid/"
  resolved "another time-stamp server" yes "CINEBAR_SIGN_TIMESTAMP_URL=http://second.invalid/"
  make_certificate "$work/other"
  quiet openssl pkcs12 -in "$work/other/test-signing.p12" -passin pass: -nokeys -out "$work/chain.pem"
  resolved "a new certificate at the same path" yes
  export CINEBAR_SIGN_CERT="$work/no-such-chain.pem"
  check "a certificate that is not there: refused" fails resolve
  check "... is named" said CINEBAR_SIGN_CERT
  export CINEBAR_SIGN_TIMESTAMP_TIMEOUT=soon CINEBAR_SIGN_CERT="$work/chain.pem"
  check "a time limit that is no number: refused" fails resolve
  check "... is named" said CINEBAR_SIGN_TIMESTAMP_TIMEOUT
}

case_certificate() {
  local row what start end usage message
  make_certificate "$work/valid"
  use_pkcs12 "$work/valid"
  check "a valid certificate signs" sign "$work/out/valid.aex"
  check "... and the signature verifies" "$OSSLSIGNCODE" verify -CAfile "$work/valid/test-ca.pem" -in "$work/out/valid.aex"
  # name | not before | not after | extended key usage | what the refusal says
  for row in "expired|20200101000000Z|20210101000000Z|codeSigning|(the build date)" \
             "expired since the build date|19700101000000Z|$yesterday|codeSigning|(now)" \
             "issued after the build date|$yesterday|20991231235959Z|codeSigning|(the build date)" \
             "not for code signing|19700101000000Z|20991231235959Z|emailProtection|not for code signing"; do
    IFS='|' read -r what start end usage message <<<"$row"
    make_certificate "$work/$what" "$start" "$end" "$usage"
    use_pkcs12 "$work/$what"
    check "$what: refused" fails sign "$work/out/$what.aex"
    check "$what: says so" said "$message"
    check "$what: nothing written" test ! -e "$work/out/$what.aex"
    check "$what: the sums are not signed either" fails "$CINEBAR_PACKAGING_DIR/sign_sums.sh" "$epoch" "$epoch"
    check "$what: ... says so" said "$message"
  done
  use_pkcs12 "$work/valid"
  export CINEBAR_SIGN_CAFILE="$work/expired/test-ca.pem"
  check "a signature another CA does not vouch for: refused" fails sign "$work/out/other-ca.aex"
  check "... and not kept" test ! -e "$work/out/other-ca.aex"
  check "... names the CA" said "does not verify against $CINEBAR_SIGN_CAFILE"
  start_tsa
  export CINEBAR_SIGN_CAFILE="$work/valid/test-ca.pem" CINEBAR_SIGN_TIMESTAMP_URL="$tsa_url"
  export CINEBAR_SIGN_TSA_CAFILE="$work/valid/test-ca.pem"
  check "a time stamp another CA does not vouch for: refused" fails sign "$work/out/other-tsa.aex"
  check "... and not kept" test ! -e "$work/out/other-tsa.aex"
  export CINEBAR_SIGN_TSA_CAFILE="$work/tsa/test-ca.pem"
  check "a time stamp its CA vouches for: kept" sign "$work/out/stamped.aex"
}

case_timestamp() {
  local started first
  make_token && use_token && start_tsa && start_silent_server first
  first="$silent_url"
  start_silent_server second
  export CINEBAR_SIGN_TSA_CAFILE="$work/tsa/test-ca.pem" CINEBAR_SIGN_TIMESTAMP_TIMEOUT=2
  # The outer limit only keeps a hang from stalling the suite: 124 is a hang.
  export CINEBAR_SIGN_TIMESTAMP_URL="$first $silent_url $tsa_url"
  check "two silent servers, then one that answers: signed" timeout 120 "${signing[@]}" "$work/out/stamped.aex" \
    2>"$work/stderr"
  check "... time-stamped by the third" grep -q '^Timestamp Server Signature verification: ok' \
    <<<"$("$OSSLSIGNCODE" verify -CAfile "$CINEBAR_SIGN_CAFILE" -TSA-CAfile "$CINEBAR_SIGN_TSA_CAFILE" \
      -in "$work/out/stamped.aex" 2>&1)"
  check "... after both silent ones were asked" test -s "$work/second.port.connections"
  check "... each named with its limit" said "$first: no answer within 2 s"
  export CINEBAR_SIGN_TIMESTAMP_URL="$first $silent_url"
  timeout 120 "${signing[@]}" "$work/out/unstamped.aex" 2>"$work/stderr"
  started=$?
  check "only silent servers: fails, and does not hang (exit $started)" test "$started" -ne 0 -a "$started" -ne 124
  check "... says so" said "no time-stamp server answered"
  check "... and writes nothing" test ! -e "$work/out/unstamped.aex"
}

case_kill() {
  make_token && use_token && start_silent_server silent
  export CINEBAR_SIGN_TIMESTAMP_URL="$silent_url" CINEBAR_SIGN_TIMESTAMP_TIMEOUT=600
  setsid "${signing[@]}" "$work/out/killed.aex" 2>/dev/null &
  local pid=$!
  check "signing waits on the silent server" eventually test -s "$work/silent.port.connections"
  check "while it waits, no file holds the PIN" not grep -rlF "$PIN" "$work/tmp" "$work/out"
  kill -KILL -- "-$pid"
  wait "$pid" 2>/dev/null
  check "killed: no file holds the PIN" not grep -rlF "$PIN" "$work/tmp" "$work/out"
  check "killed: no output" test ! -e "$work/out/killed.aex"
  check "killed: nothing half-signed beside it" equals "$(ls -A "$work/out")" ""
  unset CINEBAR_SIGN_TIMESTAMP_URL
  check "signed again" sign "$work/out/killed.aex"
  check "... and only the output is left" equals "$(ls -A "$work/out")" killed.aex
  check "... nothing of the killed run in TMPDIR" equals "$(ls -A "$work/tmp")" ""
}

case_publish() {
  local dist="$work/dist" module=KSCinebar.aex before
  publish() {
    "$CINEBAR_PACKAGING_DIR/publish.sh" "$dist" Cinebar-test "$epoch" "$CINEBAR_PACKAGING_DIR/INSTALL.txt.in" \
      "$CINEBAR_PACKAGING_DIR/../LICENSE" "$@" 2>"$work/stderr"
  }
  snapshot() { (cd "$dist" && find . -type f -exec sha256sum {} + | sort); }
  make_certificate "$work/keys"
  make_certificate "$work/stranger"
  use_pkcs12 "$work/keys"
  mkdir -p "$work/stage" "$dist/previews"
  quiet sign "$work/stage/$module"
  cp "$CINEBAR_STAGE_DIR/$module.debug" "$work/stage/"
  echo "the last release" >"$dist/Cinebar-0.9-win64.zip"
  echo "preview" >"$dist/previews/contact-sheet.png"
  CINEBAR_SIGN_PKCS12="$work/stranger/test-signing.p12" CINEBAR_SIGN_CAFILE="$work/stranger/test-ca.pem" \
    quiet sign "$work/stranger.aex"
  before="$(snapshot)"
  check "a file signed by another key: not published" fails publish "$work/stage/$module.debug" \
    "$work/stranger.aex"
  check "... names it" said "stranger.aex does not verify"
  check "... and dist/ is as it was" equals "$(snapshot)" "$before"
  check "... with nothing beside it" equals "$(find "$work" -maxdepth 1 -name 'dist.*')" ""
  check "verified files: published" publish "$work/stage/$module" "$work/stage/$module.debug"
  check "... dist/ holds the release and the previews only" equals "$(cd "$dist" && find . -type f | sort | xargs)" \
    "./Cinebar-test.zip ./KSCinebar.aex ./KSCinebar.aex.debug ./SHA256SUMS ./SHA256SUMS.sig ./previews/contact-sheet.png"
  check "... SHA256SUMS holds in dist/" sums_hold "$dist"
  check "... the zip unpacks" unzip -q "$dist/Cinebar-test.zip" -d "$work/unzipped"
  check "... and in the unpacked zip" sums_hold "$work/unzipped/Cinebar-test"
  for sums in "$dist/SHA256SUMS" "$work/unzipped/Cinebar-test/SHA256SUMS"; do
    check "$sums: the signature verifies" sums_signed "$sums" "$work/keys/test-ca.pem"
    check "$sums: not against another CA" not sums_signed "$sums" "$work/stranger/test-ca.pem"
    echo "0000000000000000000000000000000000000000000000000000000000000000  extra" >>"$sums"
    check "$sums: nor for changed sums" not sums_signed "$sums" "$work/keys/test-ca.pem"
  done
}

# The build's own scripts sign through the token, with a time stamp from the
# second server: the first does not answer.
case_token() {
  make_token && use_token && start_tsa
  export CINEBAR_SIGN_TSA_CAFILE="$work/tsa/test-ca.pem" CINEBAR_SIGN_TIMESTAMP_URL="http://127.0.0.1:9/ $tsa_url"
  local out="$work/out" file report signer
  package() { "$CINEBAR_PACKAGING_DIR/package.sh" "$CINEBAR_RELEASE_ENV" "$@"; }
  check "the module is signed" sign "$out/$MODULE_NAME"
  check "the installer is built and signed" package installer "$out/setup.exe"
  check "the MSI package is built and signed" package msi "$out/package.msi"
  check "a wrong PIN fails" fails env CINEBAR_SIGN_PIN=0000 "${signing[@]}" "$out/wrong-pin.aex"
  check "... and writes nothing" test ! -e "$out/wrong-pin.aex"
  # The uninstaller is signed inside makensis: install, then look at it.
  new_prefix signing
  install_silently "$out/setup.exe" '/D=C:\Signed'
  cp "$(unix_path "C:\\Signed\\$UNINSTALLER")" "$out/uninstaller.exe"
  signer="$(openssl x509 -in "$work/chain.pem" -noout -subject -nameopt compat | sed 's/^subject=//')"
  for file in "$out/$MODULE_NAME" "$out/setup.exe" "$out/uninstaller.exe" "$out/package.msi"; do
    report="$("$OSSLSIGNCODE" verify -CAfile "$CINEBAR_SIGN_CAFILE" -TSA-CAfile "$work/tsa/test-ca.pem" -in "$file" 2>&1)"
    echo "---- osslsigncode verify $(basename "$file")" && echo "$report"
    check "$file: signature verifies" grep -q '^Signature verification: ok' <<<"$report"
    check "$file: signed by the key in the token" grep -qF "Subject: $signer" <<<"$report"
    check "$file: time-stamped" grep -qE '^(\s*Timestamp time|The signature is timestamped):' <<<"$report"
    check "$file: the time stamp's chain verifies" grep -q '^Timestamp Server Signature verification: ok' <<<"$report"
  done
}

case "${1:-}" in
  settings | certificate | timestamp | kill | publish | token) "case_$1" ;;
  *) echo "usage: $0 settings|certificate|timestamp|kill|publish|token" >&2 && exit 2 ;;
esac
checks_summary
