# wine_session.sh - sourced: a Wine session in the prefix $WINEPREFIX, which is made when it is not there, headless. Sets
# $wine; at the shell's end what was started here is ended. What does not come about ends the shell with 2.
export WINEPREFIX
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe=" # no offers to download, no menus in the home folder
export WINEARCH=win64
unset DISPLAY
PATH=$PATH:/usr/lib/wine # where Debian keeps wine64 and wineserver
wine=$(command -v wine64 || command -v wine) || { echo "wine is not installed" >&2; exit 2; }

# Wine ends its services with the last program: one stays until stop_keeping, or the shell's end. What holds its input
# open starts nothing: a program started meanwhile would hold it too, and with Wine's own services as long as they run.
keeper=
keep_wine() { # FIFO
    mkfifo "$1"
    tail -f /dev/null >"$1" &
    keeper=$!
    disown
    "$wine" cmd <"$1" >/dev/null 2>&1 &
}
stop_keeping() {
    [ -z "$keeper" ] || kill "$keeper"
    keeper=
}

xvfb=
finish() {
    local status=$?
    stop_keeping
    # Wine's own services end soon after the last program, and what was written is kept only then. Both commands
    # reach the processes of this prefix only.
    timeout 20 wineserver -w >/dev/null 2>&1 || timeout 20 wineserver -k >/dev/null 2>&1
    [ -z "$xvfb" ] || { kill "$xvfb" && wait "$xvfb"; } 2>/dev/null
    exit $status
}
trap finish EXIT
trap 'exit 1' INT TERM

# A display on a number that the server itself finds free.
session_scratch=$(mktemp -d)
mkfifo "$session_scratch/display"
exec 7<>"$session_scratch/display"
rm -r "$session_scratch"
Xvfb -displayfd 7 -screen 0 640x480x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
read -r -t 30 -u 7 number || { echo "Xvfb does not start" >&2; exit 2; }
export DISPLAY=:$number

# A prefix is made once, build/wine-prefix-new, and never used: those that are used begin as copies of it, with links in
# the place of Wine's files, which nobody writes to.
new=$(dirname "$WINEPREFIX")/wine-prefix-new
make_new_prefix() (
    export WINEPREFIX=$new
    rm -rf "$new" && mkdir -p "$new"
    timeout -k 5 240 "$wine" wineboot -i </dev/null >/dev/null 2>&1 || exit 1
    # Some services do not start before the session that made it has ended.
    timeout 60 wineserver -w || wineserver -k
    touch "$new/made"
)
mkdir -p "$(dirname "$new")"
exec 5>"$new.lock"
flock 5
if [ ! -e "$new/made" ]; then
    make_new_prefix 5>&- || { echo "the Wine prefix cannot be made" >&2; exit 2; }
fi
exec 5>&-
if [ ! -e "$WINEPREFIX/made" ] || [ "$WINEPREFIX/made" -ot "$new/made" ]; then
    rm -rf "$WINEPREFIX" && mkdir -p "$WINEPREFIX" &&
        cp -al "$new/drive_c" "$WINEPREFIX/" &&
        cp -a "$new"/*.reg "$new/.update-timestamp" "$new/dosdevices" "$WINEPREFIX/" &&
        touch "$WINEPREFIX/made" || { echo "the Wine prefix cannot be copied" >&2; exit 2; }
fi
