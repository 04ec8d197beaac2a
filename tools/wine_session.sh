# wine_session.sh - sourced: a Wine session in the prefix $WINEPREFIX, which is made when it is not there, headless. Sets
# $wine; at the shell's end what was started here is ended. What does not come about ends the shell with 2.
export WINEPREFIX
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe=" # no offers to download, no menus in the home folder
export WINEARCH=win64
unset DISPLAY
PATH=$PATH:/usr/lib/wine # where Debian keeps wine64 and wineserver
wine=$(command -v wine64 || command -v wine) || { echo "wine is not installed" >&2; exit 2; }

xvfb=
finish() {
    local status=$?
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

mkdir -p "$WINEPREFIX"
if [ ! -e "$WINEPREFIX/made" ]; then
    timeout -k 5 240 "$wine" wineboot -i </dev/null >/dev/null 2>&1 ||
        { echo "the Wine prefix cannot be made" >&2; exit 2; }
    # Some services do not start before the session that made it has ended.
    timeout 60 wineserver -w || wineserver -k
    touch "$WINEPREFIX/made"
fi
