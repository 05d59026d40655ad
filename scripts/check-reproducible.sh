#!/usr/bin/env bash
# Checks that the release is reproducible: builds one commit twice, from two
# clones at different absolute paths with fresh build trees, the same
# SOURCE_DATE_EPOCH and the same signing key, and compares the shippable files
# byte for byte (module, its symbols, installer, zip, SHA256SUMS).
#
#   scripts/check-reproducible.sh [commit]     (default: HEAD)
#
# Only committed work is built. SOURCE_DATE_EPOCH defaults to the commit's
# time. Both builds sign with CINEBAR_SIGN_PKCS12 (and CINEBAR_SIGN_PASSWORD)
# when set; otherwise with one throwaway test certificate made here for both,
# since a signature is only the same bytes under the same key and certificate.
# KEEP=1 keeps the two trees for a closer look. Exit code 0 when every file is
# identical, 1 when one differs.
set -euo pipefail
repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
commit="$(git -C "$repo" rev-parse --verify "${1:-HEAD}^{commit}")"
export SOURCE_DATE_EPOCH="${SOURCE_DATE_EPOCH:-$(git -C "$repo" log -1 --format=%ct "$commit")}"

# shellcheck source=scripts/deps.sh
source "$repo/scripts/deps.sh"
cinebar_ensure_packages

work="$(mktemp -d "${TMPDIR:-/tmp}/cinebar-reproducible.XXXXXX")"
if [ "${KEEP:-0}" = 1 ]; then
  echo "Trees kept in $work"
else
  trap 'rm -rf "$work"' EXIT
fi

if [ -z "${CINEBAR_SIGN_PKCS12:-}" ]; then
  "$repo/packaging/make-test-certificate.sh" "$work/signing"
  export CINEBAR_SIGN_PKCS12="$work/signing/test-signing.p12" CINEBAR_SIGN_CAFILE="$work/signing/test-ca.pem"
  export CINEBAR_SIGN_PASSWORD=""
  echo "Signing both builds with a test certificate made for this check"
fi

# Source paths of different lengths, so that an embedded path changes the bytes
# and not only their content.
trees=("$work/first/cinebar" "$work/second-build-tree/src/cinebar")

start=$SECONDS
for tree in "${trees[@]}"; do
  echo "=== $commit in $tree (SOURCE_DATE_EPOCH=$SOURCE_DATE_EPOCH) ==="
  git clone -q --no-hardlinks "$repo" "$tree"
  git -C "$tree" -c advice.detachedHead=false checkout -q "$commit"
  (
    cd "$tree"
    cmake --preset win64 >"$tree.configure.log" 2>&1 || { cat "$tree.configure.log"; exit 1; }
    cmake --build --preset win64 --target cinebar_release >"$tree.build.log" 2>&1 ||
      { tail -n 40 "$tree.build.log"; exit 1; }
  )
done
echo "Two builds in $((SECONDS - start)) s"

# The shippable files: those that SHA256SUMS lists, and SHA256SUMS itself.
files=()
if [ -f "${trees[0]}/dist/SHA256SUMS" ]; then
  mapfile -t files < <(sed -E 's/^[0-9a-f]{64}  //' "${trees[0]}/dist/SHA256SUMS")
fi
files+=(SHA256SUMS)
status=0
if [ "${#files[@]}" -ne 5 ]; then
  echo "expected the module, its symbols, the installer and the zip in SHA256SUMS, found: ${files[*]}"
  status=1
fi
for f in "${files[@]}"; do
  a="${trees[0]}/dist/$f"
  b="${trees[1]}/dist/$f"
  if [ ! -f "$a" ] || [ ! -f "$b" ]; then
    echo "MISSING  $f"
    status=1
  elif cmp -s "$a" "$b"; then
    echo "SAME     $f  $(sha256sum "$a" | cut -d' ' -f1)"
  else
    echo "DIFFERS  $f  ($(cmp -l "$a" "$b" | wc -l) bytes; first offsets below)"
    cmp -l "$a" "$b" | head -n 10
    status=1
  fi
done
# Identical files prove nothing about signing: the module and the installer
# must carry signatures that verify.
ca=()
[ -z "${CINEBAR_SIGN_CAFILE:-}" ] || ca=(-CAfile "$CINEBAR_SIGN_CAFILE")
for f in "${files[@]}"; do
  case "$f" in *.aex | *.exe) ;; *) continue ;; esac
  if osslsigncode verify "${ca[@]}" -in "${trees[0]}/dist/$f" >/dev/null 2>&1; then
    echo "SIGNED   $f"
  else
    echo "UNSIGNED $f  (osslsigncode verify fails)"
    status=1
  fi
done
if [ "$status" -ne 0 ]; then
  echo "Not reproducible or not signed. Compare e.g. x86_64-w64-mingw32-objdump -x of both modules; KEEP=1 keeps the trees."
fi
exit "$status"
