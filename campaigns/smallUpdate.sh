# shellcheck shell=bash disable=SC2034,SC2154
# A small update, for the campaigns that repeat it hundreds of times, and an operator who finishes it. Of the script
# that sources it, it uses: programs (where the build lies) and made (a folder for the package); work is the folder of
# one panel and its bus.

tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
config=$tree/config
# shellcheck source=sim/panel/update.sh
. "$tree/sim/panel/update.sh"
description=$tree/campaigns/update.txt

fail() {
    echo "FAILED: $work: $1" >&2
    exit 1
}

small_package() {
    mkdir -p "$made/old"
    make_package >/dev/null
    objcopy --strip-all "$programs/K+Updater" "$made/old/K+Updater"
    head -c 3000 /dev/urandom >"$made/old/uImage"
}

# The panel with its bus and display up, everything installed in the old version and the stick plugged in.
small_panel() {
    local file
    set_up_panel "$made/old/K+Updater"
    while IFS= read -r file; do
        mkdir -p "$(dirname "$PANEL/root/$file")"
        echo "as it was installed" >"$PANEL/root/$file"
    done < <(installed_files)
    cp "$made/old/uImage" "$PANEL_CARD"
    panel_install_starter "$programs/keldra-start"
    panel_open_display
}

installed_files() {
    (cd "$made/content/drivers" && find . -type f -printf '%P\n')
    (cd "$made/content/gui" && find . -type f -printf '%P\n')
}

# operate SECONDS: presses Start, which is Reload, Run Update and Close, too, until the panel is down.
operate() {
    panel_until "$1" operator_pressed
}

operator_pressed() {
    panel_is_up || return 0
    panel_click start 2>/dev/null || true
    sleep 0.4
    ! panel_is_up
}

# is_complete: everything is what the package brings, in files, flash and records; else sets incomplete.
is_complete() {
    rm -f "$work/report.txt"
    kill -USR1 "$panel_bus_pid" && panel_until 5 grep -qs '^well=' "$work/report.txt" || return 1
    incomplete=$(verify --brief | paste -sd ' ')
    [[ -z $incomplete ]]
}
