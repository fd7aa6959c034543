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
    put_links_in
    objcopy --strip-all "$programs/K+Updater" "$made/old/K+Updater"
    head -c 3000 /dev/urandom >"$made/old/uImage"
}

# A symbolic and a hard link among the drivers, which the package tool would have followed.
put_links_in() {
    local folder
    mkdir "$made/unpacked"
    tar -C "$made/unpacked" -xzf "$made/keldra_update.tgz"
    for folder in "$made"/{content,unpacked}/drivers/lib/modules; do
        ln -s can-relay.ko "$folder/newest.ko"
        ln "$folder/can-relay.ko" "$folder/same.ko"
    done
    package_pack "$made/unpacked" "$made"
}

# bad_package KIND: into a folder of that name, with an updater that crashes at its start, hangs before its window
# (both tell their version as they should), is cut short, or is for another machine.
bad_package() {
    local updater=$made/unpacked/K+Updater good=$made/content/K+Updater
    mkdir "$made/$1"
    rm "$updater"
    case $1 in
    crash) printf '#!/bin/sh\n[ "$1" = --version ] || kill -SEGV $$\n' >"$updater" ;;
    hang) printf '#!/bin/sh\n[ "$1" = --version ] || exec sleep 1000\n' >"$updater" ;;
    short) head -c 300000 "$good" >"$updater" ;;
    machine) { head -c 18 "$good" && printf '\xb7\x01' && tail -c +21 "$good"; } >"$updater" ;;
    esac
    chmod 755 "$updater"
    sed -i -E "s/(\"K\+Updater\": *\")[0-9a-f]{64}/\1$(sha256sum <"$updater" | cut -c 1-64)/" "$made/unpacked/update.manifest"
    package_pack "$made/unpacked" "$made/$1"
    cp "$updater" "$made/$1"
}

# small_panel [OPTION of the bus...]: the panel with its bus and display up, everything installed in the old version
# and the stick plugged in.
small_panel() {
    local file
    set_up_panel "$made/old/K+Updater" "$@"
    while IFS= read -r file; do
        mkdir -p "$(dirname "$PANEL/root/$file")"
        echo "as it was installed" >"$PANEL/root/$file"
    done < <(installed_files)
    cp "$made/old/uImage" "$PANEL_CARD"
    panel_install_starter "$programs/keldra-start"
    panel_open_display
}

installed_files() {
    (cd "$made/content/drivers" && find . ! -type d -printf '%P\n')
    (cd "$made/content/gui" && find . ! -type d -printf '%P\n')
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
is_complete() { is_proven --brief; }

is_proven() { # OPTION
    rm -f "$work/report.txt"
    kill -USR1 "$panel_bus_pid" && panel_until 5 grep -qs '^well=' "$work/report.txt" || return 1
    incomplete=$(verify "$1" | paste -sd ' ')
    [[ -z $incomplete ]]
}
