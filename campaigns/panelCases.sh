# shellcheck shell=bash disable=SC2154
# What campaigns of cases share, each case on a panel of its own, for scripts to source behind smallUpdate.sh.

expect() { # WHAT COMMAND...
    "${@:2}" && return
    echo "FAILED: $1" >&2
    panel_log | tail -n 5 >&2
    exit 1
}

not() { ! "$@"; }
says() { panel_wait_for 120 "$1"; }
starts() { panel_press start 120 "Starting Update..."; }

# Cancel ends an updater that has nothing to do, and Close one that is done.
halted() {
    local deadline=$((SECONDS + 60))
    until panel_is_down; do
        ((SECONDS < deadline)) || return 1
        panel_click cancel 2>/dev/null || true
        panel_click start 2>/dev/null || true
        sleep 0.5
    done
    wait "$PANEL_PID"
}

# mount_small PLACE KIBIBYTES: a disk of this size at a place of the panel, from the next boot on.
mount_small() {
    panel_before_boot "cp -r $1 /run/kept
mkdir /run/x11 && mount --rbind /tmp/.X11-unix /run/x11
mount -t tmpfs -o size=$2k tmpfs $1 && PATH=\$PATH:/run/kept cp -r /run/kept/. $1
[ $1 != /tmp ] || mount --rbind /run/x11 /tmp/.X11-unix
exec"
    cp "$(command -v cp)" "$(command -v mkdir)" "$PANEL/root/usr/bin"
}

# nothing_lost: every installed file is whole, the old one or the new one.
nothing_lost() {
    local file
    cmp -s "$made/old/K+Updater" "$PANEL/root/usr/bin/K+Updater" ||
        cmp -s "$made/content/K+Updater" "$PANEL/root/usr/bin/K+Updater" || return 1
    while IFS= read -r file; do
        grep -qsx "as it was installed" "$PANEL/root/$file" || cmp -s "$PANEL/root/$file" "$made/content/drivers/$file" ||
            cmp -s "$PANEL/root/$file" "$made/content/gui/$file" || return 1
    done < <(installed_files)
}
