# shellcheck shell=bash disable=SC2034,SC2154
# A small update with everything in it that a full one has, for the campaigns that repeat it hundreds of times, and an
# operator who finishes it. Of the script that sources it, it uses: programs (where the build lies) and shared (a folder
# for the package); work is the folder of one panel and its bus.

tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
config=$tree/config
content=$shared/content
reference=$shared/reference
# shellcheck source=sim/panel/panel.sh
. "$tree/sim/panel/panel.sh"
# shellcheck source=sim/panel/update.sh
. "$tree/sim/panel/update.sh"
# shellcheck source=sim/panel/proof.sh
. "$tree/sim/panel/proof.sh"

# One of every kind of bootloader; the others answer and are left alone, since one that is absent costs 3 s.
modules=(
    "mf1    | MultiFunction #1 | pic24-old   | 0 | 4.0.7 | 4.1.0 |                                | flash"
    "mf2    | MultiFunction #2 | pic24       | 1 | 4.0.7 | 4.1.1 |                                | flash"
    "mf3    | MultiFunction #3 | stm32f3     | 2 | 4.1.2 | 4.1.2 | preload=$content/firmware/mf3-r2.hex | current"
    "arts   | ARTS Sensor      | stm32f0     | 0 | 5.0.1 | 5.0.1 | preload=$content/firmware/arts-r0.hex | current"
    "s1     | Secondary #1     | stm32f3     | 0 | 1.2.3 | 1.3.0 |                                | flash"
    "s2     | Secondary #2     | stm32f0     | 1 | 1.3.1 | 1.3.1 | preload=$content/firmware/s2-r1.hex | current"
    "s3     | Secondary #3     | stm32f4     | 2 | 1.2.3 | 1.3.2 | preload=A5@08000000+8000       | flash"
    "s4     | Secondary #4     | pic24       | 3 | 1.3.3 | 1.3.3 | preload=$content/firmware/s4-r3.hex | current"
    "motor  | Motor            | pic24-old   | 0 | 2.0.0 | 2.0.0 | preload=$content/firmware/motor-r0.hex | current"
    "master | Primary          | pic24       | 0 | 2.5.0 | 2.5.0 | preload=$content/firmware/master-r0.hex | current"
    "ctrl   | CTRL             | pic32-pages | 0 | 3.0.0 | 3.1.0 |                                | flash"
)
spare_modules=()
updated='{"kernel":"4.19.98","rootfs":"2.1.0","updater":"3.10.1","gui":"5.3.0","drivers":"1.5.0"}'
kernel_bytes=3000

fail() {
    echo "FAILED: $work: $1" >&2
    exit 1
}

small_package() {
    mkdir -p "$content"/{boot,firmware,drivers/lib/modules,gui/keldra/bin} "$reference" "$shared/old"
    objcopy --strip-all "$programs/K+Updater" "$shared/old/K+Updater"
    LC_ALL=C sed 's/3\.10\.0/3.10.1/' "$shared/old/K+Updater" >"$content/K+Updater"
    chmod 755 "$content/K+Updater"
    head -c $kernel_bytes /dev/urandom >"$content/boot/uImage"
    head -c $kernel_bytes /dev/urandom >"$shared/old/uImage"
    head -c 20000 /dev/urandom >"$content/drivers/lib/modules/can-relay.ko"
    : >"$content/drivers/lib/modules/modules.dep"
    printf '#!/bin/sh\necho K+Main 5.3.0\n' >"$content/gui/keldra/bin/K+Main"
    chmod 755 "$content/gui/keldra/bin/K+Main"
    small_firmware
    write_description >"$content/package.json"
    package_build "$content" "$shared"
    tar -C "$reference" -xzf "$shared/keldra_update.tgz"
}

small_firmware() {
    local row
    for row in "${modules[@]}"; do
        read_module "$row"
        case $kind in
        pic24-old) firmware_flat "$content/firmware/$image" 0 0x710 ;;
        pic24) firmware_pic24 "$content/firmware/$image" 0 0x300 0x1400 0x60C ;;
        stm32f4) firmware_flat "$content/firmware/$image" 0x08000000 0x400 0x08002000 0x310 ;;
        stm32*) firmware_flat "$content/firmware/$image" 0x08000000 0x810 ;;
        pic32*) firmware_flat "$content/firmware/$image" 0x1D000000 0x1010 ;;
        esac
    done
}

# The panel with its bus and display up, everything installed in the old version and the stick plugged in.
small_panel() {
    local file
    mkdir -p "$work"
    panel_create "$work/panel" "$shared/old/K+Updater"
    panel_configure "$config"/*
    echo -n "$installed" >"$PANEL/root/keldra/config/system.manifest"
    while IFS= read -r file; do
        mkdir -p "$(dirname "$PANEL/root/$file")"
        echo "as it was installed" >"$PANEL/root/$file"
    done < <(installed_files)
    cp -r "$reference/firmware" "$work" # comparing leaves files beside the images
    cp "$shared/old/uImage" "$PANEL_CARD"
    cp "$shared"/keldra_update.tgz{,.sha} "$PANEL/usb"
    start_bus
    panel_open_display
}

installed_files() {
    (cd "$reference/drivers" && find . -type f -printf '%P\n')
    (cd "$reference/gui" && find . -type f -printf '%P\n')
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

# is_complete: everything is what the package brings, in files, flash and records.
is_complete() {
    local row
    rm -f "$work/report.txt"
    kill -USR1 "$panel_bus_pid" && panel_until 5 grep -qs '^well=' "$work/report.txt" || return 1
    incomplete=''
    same_program "$reference/K+Updater" "$PANEL/root/usr/bin/K+Updater" || incomplete+=' updater'
    card_holds "$reference/boot/uImage" || incomplete+=' kernel'
    tree_installed "$reference/drivers" || incomplete+=' drivers'
    tree_installed "$reference/gui" || incomplete+=' gui'
    for row in "${modules[@]}"; do
        read_module "$row"
        firmware_equal "$work/firmware/$image" "$work/flash/$name.hex" || incomplete+=" $name"
        [[ $(reported version) == "$packed" ]] || incomplete+=" $name's version"
    done
    [[ $(<"$PANEL/root/keldra/config/system.manifest") == "$updated" ]] || incomplete+=' record'
    no_temporary_files >/dev/null || incomplete+=' temporary files'
    [[ -z $incomplete ]]
} &>/dev/null
