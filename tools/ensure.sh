#!/bin/bash
# ensure.sh SET... - makes sure that the tools of each set are installed: host, windows, package, lint, mutants, page,
# browser.
# Root installs what is missing from Debian's packages; anybody else is told what to install.
set -eu

# set      what proves it     Debian package
table='
host       cmake                            cmake
host       g++                              g++
host       ninja                            ninja-build
host       git                              git
host       /usr/include/gtest/gtest.h       libgtest-dev
host       /usr/include/histedit.h          libedit-dev
host       script                           bsdutils
windows    cmake                            cmake
windows    ninja                            ninja-build
windows    x86_64-w64-mingw32-g++           g++-mingw-w64-x86-64-win32
windows    x86_64-w64-mingw32-windres       binutils-mingw-w64-x86-64
windows    /usr/lib/wine/wine64             wine64
windows    Xvfb                             xvfb
windows    timeout                          coreutils
package    zip                              zip
package    unzip                            unzip
lint       clang-tidy                       clang-tidy
lint       clang-format                     clang-format
lint       cppcheck                         cppcheck
lint       perl                             perl
mutants    python3                          python3
mutants    ld.lld                           lld
page       node                             nodejs
page       npm                              npm
browser    node                             nodejs
browser    npm                              npm
browser    chromium                         chromium
lint       /usr/include/c++                 libstdc++-12-dev
'

missing=()
while read -r set proof package; do
    [[ " $* " == *" $set "* ]] || continue
    if [[ $proof == /* ]]; then [ -e "$proof" ]; else command -v "$proof" >/dev/null; fi || missing+=("$package")
done < <(grep . <<<"$table")

[ ${#missing[@]} -gt 0 ] || exit 0

if [ "$(id -u)" -ne 0 ]; then
    echo "Missing tools. Install them and run this again:" >&2
    echo "    sudo apt-get install ${missing[*]}" >&2
    exit 1
fi
export DEBIAN_FRONTEND=noninteractive
echo "Installing ${missing[*]}"
log=$(mktemp)
if ! { apt-get update && apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    tail -n 20 "$log" >&2
    echo "apt-get could not install: ${missing[*]}" >&2
    exit 1
fi
rm -f "$log"
