# shellcheck shell=bash disable=SC2034,SC2154
# The update that the demonstration makes: what is installed, what the package brings, which modules there are.
# Of the script that sources it, it uses: content (what the package is packed from), reference (what it unpacks
# to), work (where the package goes), programs (where the build lies).

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
    "mf3    | MultiFunction #3 | stm32f3     | 2 | 4.1.2 | 4.1.2 | preload=$content/firmware/mf3.hex | current"
    "arts   | ARTS Sensor      | stm32f0     | 0 | -     | 5.0.1 | absent                         | absent"
    "s1     | Secondary #1     | stm32f3     | 0 | 1.2.3 | 1.3.0 |                                | flash"
    "s2     | Secondary #2     | stm32f0     | 1 | 1.2.3 | 1.3.1 | preload=00@08000000+8000       | flash"
    "s3     | Secondary #3     | stm32f4     | 2 | 1.2.3 | 1.3.2 | preload=A5@08000000+3E000      | flash"
    "s4     | Secondary #4     | pic24       | 3 | 1.2.3 | 1.3.3 |                                | flash"
    "motor  | Motor            | pic24-old   | 0 | 1.9.0 | 2.0.0 |                                | flash"
    "master | Primary          | pic24       | 0 | 2.4.1 | 2.5.0 |                                | flash"
    "ctrl   | CTRL             | pic32-pages | 0 | 3.0.0 | 3.1.0 |                                | flash"
)
installed='{"kernel":"4.19.81","rootfs":"2.1.0","updater":"3.10.0","gui":"5.2.0","drivers":"1.4.0"}'

make_package() {
    mkdir -p "$content"/{boot,firmware} "$reference"
    make_updater
    head -c 3500000 /dev/urandom >"$content/boot/uImage"
    make_drivers
    make_gui
    make_firmware
    write_manifest >"$content/update.manifest"
    package_pack "$content" "$work"
    tar -C "$reference" -xzf "$work/keldra_update.tgz"
}

# The same build with a release note inside: another program file, which behaves the same.
make_updater() {
    echo "release 3.10.1" >"$work/release-note"
    objcopy --strip-debug --add-section ".release=$work/release-note" "$programs/K+Updater" "$content/K+Updater"
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
    mkdir -p "$folder"/{bin,gui/images,gui/.cache}
    printf '#!/bin/sh\necho K+Main 5.3.0\n' >"$folder/bin/K+Main"
    chmod 755 "$folder/bin/K+Main"
    head -c 1500000 /dev/urandom >"$folder/gui/images/background.raw"
    printf 'idle\nrunning\nalarm\n' >"$folder/gui/states.txt"
    echo "stays in the package" | tee "$folder/gui/.note" >"$folder/gui/.cache/note"
}

# Sizes are no multiples of a page, and several images leave whole pages out.
make_firmware() {
    local folder=$content/firmware
    firmware_flat "$folder/mf1.hex" 0 0xA010
    firmware_pic24 "$folder/mf2.hex" 0 0x600 0x1000 0x6000 0x7000 0x6AEC
    firmware_flat "$folder/mf3.hex" 0x08000000 0xC400
    firmware_flat "$folder/arts.hex" 0x08000000 0x8000
    firmware_flat "$folder/s1.hex" 0x08000000 0xC7F0 0x0800E800 0xB010
    firmware_flat "$folder/s2.hex" 0x08000000 0x8A30
    firmware_flat "$folder/s3.hex" 0x08000000 0x18000 0x08020000 0x1D7F0
    firmware_pic24 "$folder/s4.hex" 0 0x600 0x1000 0x90C0
    firmware_flat "$folder/motor.hex" 0 0xBFF0
    firmware_pic24 "$folder/master.hex" 0 0x600 0x1000 0x167F4
    firmware_flat "$folder/ctrl.hex" 0x1D000000 0x40000
}

write_manifest() {
    cat <<END
{
  "updater": { "f": "K+Updater", "v": "3.10.1" },
  "kernel": { "f": "boot/uImage", "v": "4.19.98" },
  "drivers": { "f": "drivers", "v": "1.5.0" },
  "gui": { "f": "gui", "v": "5.3.0" },
  "mf": $(files_and_versions mf1 mf2 mf3),
  "arts": $(files_and_versions arts),
  "slave": $(files_and_versions s1 s2 s3 s4),
  "motor": $(files_and_versions motor),
  "master": $(files_and_versions master),
  "ctrl": $(files_and_versions ctrl)
}
END
}

files_and_versions() {
    local files=() versions=() wanted
    for wanted in "$@"; do
        select_module "$wanted"
        files+=("\"firmware/$name.hex\"")
        versions+=("\"$packed\"")
    done
    local IFS=,
    echo "{ \"f\": [${files[*]}], \"v\": [${versions[*]}] }"
}

read_module() { # ROW of the table
    IFS='|' read -r name shown kind revision old packed extra fate <<<"${1//*( )|*( )/|}"
}

select_module() {
    local row
    for row in "${modules[@]}"; do
        read_module "$row"
        [[ $name != "$1" ]] || return 0
    done
}
