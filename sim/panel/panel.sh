# shellcheck shell=bash
# A simulated panel, for bash scripts to source. Its files lie in a folder, PANEL; its programs run in a private
# sandbox that needs no privileges, in which the fixed paths of a panel are that folder's own and nothing that is
# mounted, removed or halted reaches the host. README.md tells what lies where.
#
# Set by these functions, and read by the scripts that use them:
#   PANEL          the folder
#   PANEL_PID      the sandbox, once it was started
#   PANEL_PORT     the device that is the panel's serial port; empty for none
#   PANEL_CARD     the file or device that is the boot partition
#   PANEL_DISPLAY  the X display of the window; empty for none
# Read by them, from the environment:
#   PANEL_SHOWN    a directory of the host that the panel has in its place, too; empty for none

panel_home=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
panel_programs=(sh tar gzip dd rm mount sleep)

# Pixels of the 480 x 272 window at which its buttons can be pressed.
declare -Ar panel_buttons=([start]="98 236" [all]="240 236" [cancel]="382 236")

# panel_create FOLDER UPDATER: a panel with this updater installed and erased flash, in a new folder.
panel_create() {
    PANEL=$1 PANEL_PID='' PANEL_PORT='' PANEL_DISPLAY='' PANEL_CARD=$1/card.img
    panel_bus_pid='' panel_display_pid=''
    mkdir -p "$PANEL"/{usb,root/{etc,home,lib,opt,run/user,srv,tmp,usr/bin,var/cache,keldra/{config,logs,tmp}}}
    chmod 700 "$PANEL/root/run/user"
    panel_copy_system
    install -m 755 "$2" "$PANEL/root/usr/bin/K+Updater"
    install -m 755 "$panel_home/panel-boot" "$panel_home/halt" "$PANEL/root/usr/bin"
    truncate -s 8M "$PANEL_CARD"
    : >"$PANEL/output.txt"
}

panel_copy_system() {
    local name
    for name in "${panel_programs[@]}"; do
        install -m 755 "$(command -v "$name")" "$PANEL/root/usr/bin/$name"
    done
    for name in /usr/lib/*-linux-gnu* /usr/lib/ld-linux*; do # the rest of /lib is the panel's own
        [[ ! -e $name ]] || ln -s "..$name" "$PANEL/root/lib/${name##*/}"
    done
    for name in /etc/fonts /etc/ld.so.cache; do
        [[ ! -e $name ]] || cp -RL "$name" "$PANEL/root/etc"
    done
}

# panel_install_starter STARTER: from now on the panel boots through it, and it knows what is installed.
panel_install_starter() {
    install -m 755 "$1" "$PANEL/root/usr/bin/keldra-start"
    mkdir -p "$PANEL/root/keldra/start"
    panel_run keldra-start --settle
}

# panel_run COMMAND...: runs a command on the panel that is down.
panel_run() {
    local sandbox=()
    panel_describe_sandbox
    bwrap "${sandbox[@]}" "$@" </dev/null
}

# panel_configure FILE...: puts files into /keldra/config.
panel_configure() {
    install -m 644 "$@" "$PANEL/root/keldra/config"
}

# panel_start_bus SIMULATOR [OPTION...]: starts a simulated bus on the panel's port; 1 if it does not start.
panel_start_bus() {
    local simulator=$1
    shift
    : >"$PANEL/bus.txt"
    "$simulator" --link "$PANEL/port" "$@" >"$PANEL/bus.txt" 2>&1 &
    panel_bus_pid=$!
    panel_until 5 grep -q -e '->' "$PANEL/bus.txt" || return 1
    PANEL_PORT=$(readlink "$PANEL/port")
}

# panel_stop_bus: ends the bus, which leaves its report and its dumps.
panel_stop_bus() {
    panel_end "$panel_bus_pid"
    panel_bus_pid=''
}

# panel_open_display: an X server of the panel's size that nobody sees; its pixels are in the file Xvfb_screen0.
panel_open_display() {
    : >"$PANEL/display.txt"
    Xvfb -displayfd 3 -noreset -screen 0 480x272x24 -nolisten tcp -fbdir "$PANEL" 3>"$PANEL/display.txt" 2>"$PANEL/xvfb.txt" &
    panel_display_pid=$!
    panel_until 10 test -s "$PANEL/display.txt" || return 1
    PANEL_DISPLAY=:$(<"$PANEL/display.txt")
}

# panel_boot [ARGUMENT...]: starts the panel, and on it the updater with these arguments.
panel_boot() {
    local sandbox=()
    panel_describe_sandbox
    bwrap "${sandbox[@]}" /usr/bin/panel-boot "$@" </dev/null >"$PANEL/output.txt" 2>&1 &
    PANEL_PID=$!
}

# panel_before_boot COMMAND...: from the next boot on these words of the shell, which run the usual command behind them.
panel_before_boot() {
    mv "$PANEL/root/usr/bin/panel-boot"{,-then}
    printf '#!/bin/sh\n%s panel-boot-then "$@"\n' "$1" >"$PANEL/root/usr/bin/panel-boot"
    chmod 755 "$PANEL/root/usr/bin/panel-boot"
}

panel_boot_as_usual() {
    mv "$PANEL/root/usr/bin/panel-boot"{-then,}
}

# The root is the sandbox's own memory file system, because only such a one can really be remounted there.
panel_describe_sandbox() {
    local directory
    sandbox=(
        --unshare-user --uid 0 --gid 0 --cap-add CAP_SYS_ADMIN
        --unshare-pid --unshare-ipc --unshare-uts --unshare-net --die-with-parent --new-session
        --proc /proc --dev /dev --symlink usr/bin /bin --symlink usr/bin /sbin
        --bind "$PANEL/root/usr/bin" /usr/bin --ro-bind /usr/lib /usr/lib --ro-bind /usr/share /usr/share
        --ro-bind-try /usr/lib64 /lib64
    )
    for directory in etc home keldra lib opt run srv tmp var; do
        sandbox+=(--bind "$PANEL/root/$directory" "/$directory")
    done
    sandbox+=(
        --ro-bind-try /var/cache/fontconfig /var/cache/fontconfig
        --bind "$PANEL/usb" /mnt/usb --dev-bind "$PANEL_CARD" /dev/mmcblk0p1
        --chdir / --clearenv --setenv PATH /usr/bin --setenv HOME /home --setenv XDG_RUNTIME_DIR /run/user
    )
    [[ -z $PANEL_PORT ]] || sandbox+=(--dev-bind "$PANEL_PORT" /dev/ttyKB)
    [[ -z ${PANEL_SHOWN:-} ]] || sandbox+=(--bind "$PANEL_SHOWN" "$PANEL_SHOWN")
    panel_describe_display
}

panel_describe_display() {
    local socket=${PANEL_DISPLAY%.*}
    socket=/tmp/.X11-unix/X${socket#:}
    if [[ -z $PANEL_DISPLAY ]]; then
        sandbox+=(--setenv QT_QPA_PLATFORM offscreen)
        return
    fi
    sandbox+=(--setenv QT_QPA_PLATFORM xcb --setenv DISPLAY "$PANEL_DISPLAY")
    if [[ -S $socket ]]; then
        sandbox+=(--ro-bind "$socket" "$socket")
    else
        sandbox+=(--share-net) # a display that is forwarded from elsewhere
    fi
    if [[ -z $panel_display_pid && -r ${XAUTHORITY:-$HOME/.Xauthority} ]]; then
        sandbox+=(--ro-bind "${XAUTHORITY:-$HOME/.Xauthority}" /run/user/Xauthority
            --setenv XAUTHORITY /run/user/Xauthority)
    fi
}

# panel_until SECONDS COMMAND...: repeats the command until it succeeds; 1 when it has not by then.
panel_until() {
    local deadline=$((SECONDS + $1 + 1))
    shift
    until "$@"; do
        ((SECONDS < deadline)) || return 1
        sleep 0.05
    done
}

panel_is_up() {
    [[ -n $PANEL_PID ]] && kill -0 "$PANEL_PID" 2>/dev/null
}

# panel_log: the updater's log so far; of a running updater the newest lines lie in /tmp.
panel_log() {
    { cat "$PANEL/root/keldra/logs/update.log" "$PANEL/root/tmp/update.log" 2>/dev/null || true; } | tr -d '\r'
}

# panel_said TEXT [COUNT]: the text stands in log or standard output, in COUNT lines at least. Of a text of several
# lines, any of them does.
panel_said() {
    (($({ panel_log; cat "$PANEL/output.txt"; } | grep -cF -e "$1") >= ${2:-1}))
}

# panel_wait_for SECONDS TEXT [COUNT]: until panel_said; 1 when the time is up or the panel is down without it.
panel_wait_for() {
    panel_until "$1" panel_said_or_down "${@:2}" && panel_said "${@:2}"
}

panel_said_or_down() {
    panel_said "$@" || ! panel_is_up
}

# panel_press BUTTON SECONDS TEXT [COUNT]: clicks start, all or cancel until panel_said. A click on a button that
# is not enabled yet does nothing, so it is repeated.
panel_press() {
    local button=$1 deadline=$((SECONDS + $2))
    shift 2
    until panel_said "$@"; do
        ((SECONDS <= deadline)) && panel_is_up || return 1
        panel_click "$button"
        panel_until 1 panel_said "$@" || true
    done
}

# panel_click BUTTON [OPTION of xdotool's click...]
panel_click() {
    # shellcheck disable=SC2086 # two numbers
    DISPLAY=$PANEL_DISPLAY xdotool mousemove ${panel_buttons[$1]} click "${@:2}" 1
}

# panel_screenshot FILE: the panel's screen as it is now. Nothing without a display of its own.
panel_screenshot() {
    [[ -z $panel_display_pid ]] || import -display "$PANEL_DISPLAY" -window root "$1"
}

# panel_wait_for_halt SECONDS: 0 when the panel halted, 1 when the updater ended without that or time is up.
panel_wait_for_halt() {
    panel_until "$1" panel_is_down && wait "$PANEL_PID"
}

panel_is_down() {
    ! panel_is_up
}

# panel_signal SIGNAL: sends a signal to the updater that runs on the panel; 1 if there is none.
panel_signal() {
    local found=1 pid children waiting=("$PANEL_PID")
    while ((${#waiting[@]})); do
        pid=${waiting[0]}
        read -ra children <"/proc/$pid/task/$pid/children" || true
        waiting=("${waiting[@]:1}" "${children[@]}")
        if [[ $(<"/proc/$pid/comm") == K+Updater ]]; then
            kill -s "$1" "$pid" && found=0
        fi
    done 2>/dev/null
    return $found
}

panel_end() {
    [[ -n $1 ]] || return 0
    kill "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
}

# panel_remove_power: ends everything that runs for the panel; its files stay.
panel_remove_power() {
    panel_end "${PANEL_PID:-}"
    panel_end "${panel_bus_pid:-}"
    panel_end "${panel_display_pid:-}"
    PANEL_PID='' panel_bus_pid='' panel_display_pid=''
}
