#!/usr/bin/env bash
# Checks the release files in dist/ as a studio's deployment and a crash
# investigation meet them: SHA-256 Authenticode signatures with the build date
# that a changed byte breaks; a module without debug sections but otherwise
# the linked one, whose debug link finds the symbols that turn a crash
# report's address into a source line; SHA256SUMS, in dist/ and in the zip,
# that checks and is signed.
here="$(dirname "${BASH_SOURCE[0]}")"
# shellcheck source=tests/packaging/checks.sh
source "$here/checks.sh"
need CINEBAR_OBJDUMP CINEBAR_OBJCOPY CINEBAR_ADDR2LINE CINEBAR_SHIPPED_MODULE CINEBAR_LINKED_MODULE CINEBAR_INSTALLER \
  CINEBAR_MSI CINEBAR_SIGN_CAFILE
dist="$(dirname "$CINEBAR_SHIPPED_MODULE")"
module_name="$(basename "$CINEBAR_SHIPPED_MODULE")"
symbols="$CINEBAR_SHIPPED_MODULE.debug"

verify() { "$OSSLSIGNCODE" verify -CAfile "$CINEBAR_SIGN_CAFILE" -in "$1" 2>&1; }  # the report; its exit code
# The time as OpenSSL prints it.
signing_time="$(LC_ALL=C date -u -d "@$(cat "$EPOCH_FILE")" '+%b %e %H:%M:%S %Y GMT')"

for file in "$CINEBAR_SHIPPED_MODULE" "$CINEBAR_INSTALLER" "$CINEBAR_MSI"; do
  name="$(basename "$file")"
  report="$(verify "$file")"
  check "$name: signature verifies" contains "$report" "Signature verification: ok"
  check "$name: digest is SHA-256" grep -qE "^Message digest algorithm +: SHA256" <<<"$report"
  check "$name: signing time is the release time" contains "$report" "Signing time: $signing_time"
  # A byte changed in the middle of the signed bytes.
  cp "$file" "$work/$name"
  size="$(stat -c %s "$file")"
  printf '\x5a' | dd of="$work/$name" bs=1 seek=$((size / 2)) conv=notrunc status=none
  check "$name: a changed byte fails verification" not cmp -s "$file" "$work/$name"
  check "$name: ... and is caught" not verify "$work/$name" >/dev/null
done

sections() { "$CINEBAR_OBJDUMP" -h "$1" | awk '$1 ~ /^[0-9]+$/ { print $2 }'; }
shipped_sections="$(sections "$CINEBAR_SHIPPED_MODULE")"
check "$module_name: no debug sections" not grep -q '^\.debug_' <<<"$shipped_sections"
check "$module_name: has a debug link" grep -qx '\.gnu_debuglink' <<<"$shipped_sections"
check "$module_name.debug: has the debug information" grep -qx '\.debug_info' <<<"$(sections "$symbols")"

# Every section the module is loaded with, byte for byte the linked module's.
for section in $(sections "$CINEBAR_LINKED_MODULE"); do
  case "$section" in .debug_* | .bss) continue ;; esac
  "$CINEBAR_OBJCOPY" -O binary -j "$section" "$CINEBAR_LINKED_MODULE" "$work/linked$section"
  "$CINEBAR_OBJCOPY" -O binary -j "$section" "$CINEBAR_SHIPPED_MODULE" "$work/shipped$section"
  check "$module_name: $section is the linked module's" cmp -s "$work/linked$section" "$work/shipped$section"
done

# A crash report gives the module's offset: image base plus offset is the
# address the symbols know. EntryPointFunc's own offset stands in for one.
headers="$("$CINEBAR_OBJDUMP" -p "$CINEBAR_SHIPPED_MODULE")"
base="$(awk '$1 == "ImageBase" { print $2 }' <<<"$headers")"
offset="$(awk '/Export Address Table/ { table = 1; next } table && /Export RVA/ { print $(NF - 2); exit }' \
  <<<"$headers")"
check "$module_name: export offset read" test -n "$base" -a -n "$offset"
address="$(printf '%#x' $((0x$base + 0x$offset)))"
located="$("$CINEBAR_ADDR2LINE" -f -e "$symbols" "$address" | tr '\n' ' ')"
check "$module_name.debug: offset $offset is EntryPointFunc in plugin/entry_point.cpp (got: $located)" \
  grep -qE '^EntryPointFunc (\./)?plugin/entry_point\.cpp:[0-9]+ $' <<<"$located"
check "$module_name: objdump follows the debug link to $module_name.debug" contains \
  "$(cd "$work" && "$CINEBAR_OBJDUMP" --dwarf=follow-links --dwarf=decodedline "$CINEBAR_SHIPPED_MODULE" 2>&1 |
    head -n 1)" "(loaded from $symbols)"

for file in "$CINEBAR_SHIPPED_MODULE" "$symbols" "$CINEBAR_INSTALLER" "$CINEBAR_MSI"; do
  check "SHA256SUMS lists $(basename "$file")" grep -qE "^[0-9a-f]{64}  $(basename "$file")\$" "$dist/SHA256SUMS"
done
check "SHA256SUMS lists all there is" sums_hold "$dist"
check "SHA256SUMS.sig verifies" sums_signed "$dist/SHA256SUMS" "$CINEBAR_SIGN_CAFILE"
zip="$(grep -oE '[^ ]+\.zip$' "$dist/SHA256SUMS")"
unzip -q "$dist/$zip" -d "$work/unzipped"
check "$zip: its SHA256SUMS holds" sums_hold "$work/unzipped/${zip%.zip}"
check "$zip: its SHA256SUMS.sig verifies" sums_signed "$work/unzipped/${zip%.zip}/SHA256SUMS" "$CINEBAR_SIGN_CAFILE"

checks_summary
