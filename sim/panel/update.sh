# shellcheck shell=bash disable=SC2034,SC2154
# The update that the demonstration makes: what is installed, what the package brings, which modules there are, and an
# operator. Of the script that sources it, it uses: programs (where the build lies), config (what goes into
# /keldra/config), content (what the package is made from), reference (what it unpacks to), work (for everything else),
# and the functions fail and take_screenshot.

panel_home=${panel_home:-$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)}
# shellcheck source=sim/panel/package.sh
. "$panel_home/package.sh"
# shellcheck source=sim/panel/firmware.sh
. "$panel_home/firmware.sh"
shopt -s extglob

# The modules in the order in which they are visited: inventory name, name on the display, processor, hardware
# revision, installed and packed version, what else the inventory says, what is to happen. The hardware revision
# picks the image among those of one kind of module.
modules=(
    "mf1    | MultiFunction #1 | pic24-old   | 0 | 4.0.7 | 4.1.0 | reply=short                    | flash"
    "mf2    | MultiFunction #2 | pic24       | 1 | 4.0.7 | 4.1.1 | preload=5A@5000+3000           | flash"
    "mf3    | MultiFunction #3 | stm32f3     | 2 | 4.1.2 | 4.1.2 | preload=$content/firmware/mf3-r2.hex | current"
    "arts   | ARTS Sensor      | stm32f0     | 0 | -     | 5.0.1 | absent                         | absent"
    "s1     | Secondary #1     | stm32f3     | 0 | 1.2.3 | 1.3.0 |                                | flash"
    "s2     | Secondary #2     | stm32f0     | 1 | 1.2.3 | 1.3.1 | preload=00@08000000+8000       | flash"
    "s3     | Secondary #3     | stm32f4     | 2 | 1.2.3 | 1.3.2 | preload=A5@08000000+3E000      | flash"
    "s4     | Secondary #4     | pic24       | 3 | 1.2.3 | 1.3.3 |                                | flash"
    "motor  | Motor            | pic24-old   | 0 | 1.9.0 | 2.0.0 |                                | flash"
    "master | Primary          | pic24       | 0 | 2.4.1 | 2.5.0 |                                | flash"
    "ctrl   | CTRL             | pic32-pages | 0 | 3.0.0 | 3.1.0 |                                | flash"
)
# What a technician puts in the place of another module later on.
spare_modules=(
    "ctrl   | CTRL             | pic32-records | 1 | 2.9.4 | 3.1.1 |                              | flash"
)
installed='{"kernel":"4.19.81","rootfs":"2.1.0","updater":"3.10.0","gui":"5.2.0","drivers":"1.4.0"}'

make_package() {
    mkdir -p "$content"/{boot,firmware} "$reference"
    make_updater
    head -c 3500000 /dev/urandom >"$content/boot/uImage"
    make_drivers
    make_gui
    make_firmware
    write_description >"$content/package.json"
    package_build "$content" "$work"
    tar -C "$reference" -xzf "$work/keldra_update.tgz"
}

# The same build, which calls itself a later one.
make_updater() {
    objcopy --strip-debug "$programs/K+Updater" "$content/K+Updater"
    LC_ALL=C sed -i 's/3\.10\.0/3.10.1/' "$content/K+Updater"
}

make_drivers() {
    local folder=$content/drivers/lib/modules/4.19.98-keldra name
    mkdir -p "$folder/kernel" "$content/drivers/etc/modules-load.d"
    for name in can-relay touch-panel backlight; do
        head -c 90000 /dev/urandom >"$folder/kernel/$name.ko"
        echo "$name" >>"$content/drivers/etc/modules-load.d/keldra.conf"
    done
    : >"$folder/modules.dep" # an empty file is to arrive, too
}

make_gui() {
    local folder=$content/gui/keldra
    mkdir -p "$folder"/{bin,gui/images}
    printf '#!/bin/sh\necho K+Main 5.3.0\n' >"$folder/bin/K+Main"
    chmod 755 "$folder/bin/K+Main"
    head -c 1500000 /dev/urandom >"$folder/gui/images/background.raw"
    printf 'idle\nrunning\nalarm\n' >"$folder/gui/states.txt"
}

# Sizes are no multiples of a page, and several images leave whole pages out.
make_firmware() {
    local folder=$content/firmware
    firmware_flat "$folder/mf1-r0.hex" 0 0xA010
    firmware_pic24 "$folder/mf2-r1.hex" 0 0x600 0x1000 0x6000 0x7000 0x6AEC
    firmware_flat "$folder/mf3-r2.hex" 0x08000000 0xC400
    firmware_flat "$folder/arts-r0.hex" 0x08000000 0x8000
    firmware_flat "$folder/s1-r0.hex" 0x08000000 0xC7F0 0x0800E800 0xB010
    firmware_flat "$folder/s2-r1.hex" 0x08000000 0x8A30
    firmware_flat "$folder/s3-r2.hex" 0x08000000 0x18000 0x08020000 0x1D7F0
    firmware_pic24 "$folder/s4-r3.hex" 0 0x600 0x1000 0x90C0
    firmware_flat "$folder/motor-r0.hex" 0 0xBFF0
    firmware_pic24 "$folder/master-r0.hex" 0 0x600 0x1000 0x167F4
    firmware_flat "$folder/ctrl-r0.hex" 0x1D000000 0x40000
    firmware_flat "$folder/ctrl-r1.hex" 0x1D000000 0x8A30
}

write_description() {
    cat <<END
{
  "updater": [{"file": "K+Updater", "version": "3.10.1"}],
  "kernel": [{"file": "boot/uImage", "version": "4.19.98"}],
  "drivers": [{"file": "drivers", "version": "1.5.0"}],
  "gui": [{"file": "gui", "version": "5.3.0"}],
  "mf": [$(images_of 'mf?')],
  "arts": [$(images_of arts)],
  "slave": [$(images_of 's?')],
  "motor": [$(images_of motor)],
  "master": [$(images_of master)],
  "ctrl": [$(images_of ctrl)]
}
END
}

images_of() { # NAMES, as a pattern: those of one kind stand in the tables in the order of their hardware revisions
    local row comma=''
    for row in "${modules[@]}" "${spare_modules[@]}"; do
        read_module "$row"
        # shellcheck disable=SC2053 # a pattern
        [[ $name == $1 ]] || continue
        echo "$comma{\"file\": \"firmware/$image\", \"version\": \"$packed\", \"processor\": \"$kind\"}"
        comma=', '
    done
}

read_module() { # ROW of the table
    IFS='|' read -r name shown kind revision old packed extra fate <<<"${1//*( )|*( )/|}"
    image=$name-r$revision.hex
}

# set_up_panel [OPTION of the bus...]: the panel before the update, with its bus on, and the package on its stick.
set_up_panel() {
    panel_create "$work/panel" "$programs/K+Updater"
    panel_configure "$config"/*
    echo -n "$installed" >"$PANEL/root/keldra/config/system.manifest"
    head -c 8M /dev/urandom >"$PANEL_CARD"
    cp "$work"/keldra_update.tgz{,.sha} "$PANEL/usb"
    start_bus "$@"
}

start_bus() { # [OPTION of the bus...]
    local row
    for row in "${modules[@]}"; do
        read_module "$row"
        echo "$name kind=$kind hw=$revision version=${old/-/0.0.0} next=$packed $extra"
    done >"$work/inventory"
    panel_start_bus "$programs/bus-sim" --inventory "$work/inventory" --report "$work/report.txt" \
        --dump "$work/flash" "$@" || fail "the bus does not start"
}

# The modules as the package tool wants to know them.
write_inventory() {
    local row comma=''
    echo "{"
    for row in "${modules[@]}"; do
        read_module "$row"
        [[ $fate != absent ]] || continue
        echo "$comma  \"$name\": {\"kind\": \"$kind\", \"hw\": $revision, \"version\": \"$old\"}"
        comma=','
    done
    echo "}"
}

# The panel's control module is exchanged, and everything else is as the update left it.
exchange_control_module() { # [OPTION of the bus...]
    local row spare=("${spare_modules[@]}")
    for row in "${modules[@]::${#modules[@]}-1}"; do
        read_module "$row"
        [[ $fate == absent ]] || extra="preload=$reference/firmware/$image" fate=current
        spare+=("$name|$shown|$kind|$revision|$packed|$packed|$extra|$fate")
    done
    modules=("${spare[@]:1}" "${spare[0]}")
    mv "$PANEL/root/keldra/logs/update.log" "$work/first-update.log"
    mv "$work/report.txt" "$work/first-report.txt"
    start_bus "$@"
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
