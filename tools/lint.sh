#!/bin/bash
# lint.sh - all checks of the sources; reports every finding and fails when there is one.
set -u
cd "$(dirname "$0")/.."

status=0
check() { # NAME COMMAND...
    local name=$1
    shift
    echo "lint: $name"
    "$@" || { status=1; echo "lint: $name found something"; }
}

# The host build's flags, as far as clang knows them.
flags=(-std=c++20 -fshort-wchar -Wall -Wextra -Wconversion
       -DUNICODE -D_UNICODE -D_WIN32_WINNT=0x0602 -DWINVER=0x0602 '-DZORPM_VERSION=L\"0\"' '-DZORPMSIM_VERSION=\"0\"'
       '-DZORPM_SOURCE_DIR=\".\"' -isystem sim/include -Iinclude -Isrc -I.)

layout() { git ls-files -co --exclude-standard '*.h' '*.cpp' | xargs clang-format --dry-run -Werror; }

# tidy_folders EXTRA_FLAGS PATH...
tidy_folders() {
    local extra=$1
    shift
    git ls-files "$@" | xargs -P "$(nproc)" -n 4 sh -c \
        'for file; do clang-tidy --quiet "$file" -- '"${flags[*]} $extra"' 2>&1 | grep -v "warnings* generated" && bad=1; done
         exit ${bad:-0}' sh
}

tidy() {
    local status=0
    tidy_folders "-fno-exceptions -fno-rtti" 'src/*.cpp' || status=1
    tidy_folders "" 'sim/*.cpp' 'tests/*.cpp' ':!tests/wine' ':!tests/platform/main_windows.cpp' || status=1
    return $status
}

static_analysis() {
    cppcheck --quiet --enable=warning,performance,portability --error-exitcode=1 --inline-suppr -j "$(nproc)" \
        --std=c++20 --language=c++ --suppress='*:sim/include/*' --suppress=missingInclude \
        --library=googletest -DUNICODE -D_UNICODE -D_WIN32_WINNT=0x0602 '-DZORPM_SOURCE_DIR="."' \
        -Isim/include -Iinclude -Isrc -I. src sim tests -itests/wine -itests/platform/main_windows.cpp
}

check "layout (clang-format)" layout
check "project rules" tools/rules.sh
check "tables of docs/interface.md" tools/interface_tables.pl
check "planted defects" tests/defects/run.sh --check
check "cppcheck" static_analysis
check "clang-tidy" tidy
exit $status
