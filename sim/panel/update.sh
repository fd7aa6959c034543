# shellcheck shell=bash disable=SC2034,SC2154
# A whole update of a simulated panel: its package, the panel before it, an operator, and the proof that everything
# arrived. What it consists of stands in a description; panel-kit knows what to make of it. Of the script that sources
# this, it uses: programs (where the build lies), config (what goes into /keldra/config), description, made (a folder
# for the package), work (a folder for one panel and its bus), shots (one for screenshots; none without) and fail.

panel_home=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
description=$panel_home/update.txt
# shellcheck source=sim/panel/panel.sh
. "$panel_home/panel.sh"
# shellcheck source=sim/panel/package.sh
. "$panel_home/package.sh"

make_package() {
    "$programs/panel-kit" content "$description" "$made/content" "$made"
    make_updater "$made/content/K+Updater"
    package_build "$made/content" "$made"
}

# What the description says of the updater: the version that the panel has, or the one that the package brings.
updater_version() { # installed|packed
    local what item installed packed
    while read -r what item installed packed _; do
        [[ "$what $item" != "item updater" ]] || echo "${!1}"
    done <"$description"
}

# The same build, which calls itself a later one; one that is started by a script differs by a remark,
# which has the text by which an updater is known to look at signatures.
make_updater() { # FILE
    local installed packed
    installed=$(updater_version installed) packed=$(updater_version packed)
    if [[ $(head -c 2 "$programs/K+Updater") == '#!' ]]; then
        { cat "$programs/K+Updater" && echo "# release $packed (Package not trusted: no signature)"; } >"$1"
    else
        objcopy --strip-all "$programs/K+Updater" "$1"
        if ((${#installed} != ${#packed})) || ! LC_ALL=C grep -qF "$installed" "$1"; then
            fail "the updater is no $installed that can be made a $packed: see the versions in $description"
        fi
        LC_ALL=C sed -i "s/${installed//./\\.}/$packed/" "$1"
    fi
    chmod 755 "$1"
}

# set_up_panel UPDATER [OPTION of the bus...]: the panel before the update, with its bus on, and the package on its stick.
set_up_panel() {
    mkdir -p "$work"
    panel_create "$work/panel" "$1"
    panel_configure "$config"/* "$made/system.manifest"
    head -c 8M /dev/urandom >"$PANEL_CARD"
    cp "$made"/keldra_update.tgz{,.sha} "$PANEL/usb"
    start_bus "$made/inventory" "${@:2}"
}

start_bus() { # INVENTORY [OPTION of the bus...]
    panel_start_bus "$programs/bus-sim" --inventory "$1" --report "$work/report.txt" --dump "$work/flash" "${@:2}" ||
        fail "the bus does not start"
}

# The operator has the whole package installed, within PATIENCE seconds.
press_buttons() { # PATIENCE
    panel_wait_for 60 "Updater file loaded." && take_screenshot 1-package-loaded &&
        panel_press start 30 "Starting Update..." &&
        panel_wait_for 60 "Init Start ------" 2 && # the new updater, started by the old one
        panel_wait_for "$1" $'Updating Secondary #1\nUpdate Done' && take_screenshot 2-modules-being-flashed &&
        panel_wait_for "$1" "Update Done" && take_screenshot 3-update-finished &&
        panel_said "Bootload Total Length" &&
        panel_press start 30 "stopping application" 2
}

# And once more, when there is nothing to do for the updater itself.
press_buttons_again() { # PATIENCE
    panel_wait_for 60 "Updater file loaded." && panel_press start 30 "Starting Update..." &&
        panel_wait_for "$1" "Update Done" && panel_said "Bootload Total Length" &&
        panel_press start 30 "stopping application"
}

take_screenshot() { # NAME
    [[ ${shots:-} ]] || return 0
    sleep 0.3 # until the window has drawn what was said
    panel_screenshot "$shots/$1.png"
}

panel_ends() {
    panel_wait_for_halt 30 || fail "the panel does not halt"
    panel_stop_bus
}

# verify [--exchanged|--brief|--no-halves]: a table, or a list of what is not as it is to be; 1 when something is not.
verify() {
    "$programs/panel-kit" verify "$description" "$made/content" "$PANEL" "$work" "$@"
}
