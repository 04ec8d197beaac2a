#!/bin/bash
# package_test.sh - makes the package of two checkouts in two folders, under another umask and in another time zone, and
# compares the bytes; then looks into it: what has to be there, and every sum of its list.
set -eu
cd "$(dirname "$0")/.."
scratch=$PWD/build/package-test
rm -rf "$scratch"
mkdir -p "$scratch"

fail() {
    echo "FAILED: $*"
    exit 1
}

checkout() { # FOLDER: the files as they would be committed now
    mkdir -p "$1"
    git ls-files -z -co --exclude-standard | while IFS= read -r -d '' file; do [ ! -e "$file" ] || printf '%s\0' "$file"; done |
        tar --null -T - -cf - | tar -C "$1" -xmf -
    make -C "$1" package >"$1.log" 2>&1 || { tail -20 "$1.log"; fail "make package in $1"; }
}

# A compiler cache may hand out what was made in another folder.
export CCACHE_DISABLE=1
(checkout "$scratch/a")
(umask 077; export TZ=Asia/Tokyo; checkout "$scratch/another folder/of a checkout")
one=$(ls "$scratch"/a/build/package/zorpm-*.zip)
[ "$(wc -l <<<"$one")" -eq 2 ] || fail "not two archives: $one"
for zip in $one; do
    cmp "$zip" "$scratch/another folder/of a checkout/build/package/${zip##*/}" || fail "$(basename "$zip") depends on where it is made"
done

package=$(grep -v debug <<<"$one")
name=$(basename "$package" .zip)
unzip -q "$package" -d "$scratch"
cd "$scratch/$name"
sha256sum --quiet -c SHA256SUMS || fail "the sums"
[ "$(wc -l <SHA256SUMS)" -eq $(($(find . -type f | wc -l) - 1)) ] || fail "files without a sum"
for file in zorpmsvc.exe zorpmctl.exe zorpmdrv.inf LICENSE.txt NOTICES.txt CHANGELOG.md docs/installation.md; do
    [ -s $file ] || fail "not in the package: $file"
done
! grep -qaF "$scratch" ./*.exe || fail "a path of the build in an executable"
! ls | grep -E '\.(sys|dll|cat)$' || fail "a file that others ship"
echo "ok: $name, the same bytes twice"
