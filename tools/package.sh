#!/bin/bash
# package.sh - packs the built preset "windows": build/package/zorpm-VERSION.zip, the files that this project ships and
# their documents, and zorpm-VERSION-debug.zip, the debug information. The first is the same, byte for byte, wherever and
# whenever it is made of the same sources with the same tools: no time, order, mode or path of this machine goes into it.
set -eu
export LC_ALL=C TZ=UTC
cd "$(dirname "$0")/.."

inf=src/setup/zorpmdrv.inf
IFS='/,.' read -r month day year major minor patch _ < <(sed -nE 's/^DriverVer *= *([0-9/]+,[0-9.]+).*/\1/p' $inf)
version=$major.$minor.$patch
grep -qF "## $version, $year-$month-$day" CHANGELOG.md || { echo "CHANGELOG.md has no entry of $version, $year-$month-$day"; exit 1; }

# NAME FILE:FOLDER... - packs the files into NAME.zip, below a folder of that name, with a list of their SHA-256 sums.
# Text keeps its line ends. All files bear the package's date.
pack() {
    local name=$1 file target
    shift
    rm -rf "build/package/$name" "build/package/$name.zip"
    for file; do
        target=build/package/$name/${file#*:}
        mkdir -p "$target"
        install -m 644 "${file%:*}" "$target/"
    done
    (
        cd "build/package/$name"
        # Collected first: the list may exist before find looks, and cannot hold its own sum.
        sums=$(find . -type f | sed 's|^\./||' | sort | xargs sha256sum)
        echo "$sums" >SHA256SUMS
        chmod 644 SHA256SUMS
        cd ..
        find "$name" -type f -exec touch -h -d "$year-$month-$day" {} +
        find "$name" -type f | sort | zip -q -X -D -@ "$name.zip"
    )
    rm -rf "build/package/$name"
    echo "build/package/$name.zip  $(stat -c %s "build/package/$name.zip") bytes"
}

documents=(CHANGELOG.md:. LICENSE.txt:. NOTICES.txt:. include/zorpm/zorpm.h:include/zorpm docs/examples/client.c:docs/examples)
for file in docs/*.md; do documents+=("$file:docs"); done
mkdir -p build/package
pack "zorpm-$version" build/windows/{zorpmsvc,zorpmctl}.exe:. $inf:. "${documents[@]}"
pack "zorpm-$version-debug" build/windows/{zorpmsvc,zorpmctl}.debug:.
