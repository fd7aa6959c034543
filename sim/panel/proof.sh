# shellcheck shell=bash disable=SC2034,SC2154
# The proof that a panel holds what its package brings, for the script that sources update.sh, too. Beside what that
# uses: the bus's report.txt and flash/ in work.

verify_everything() {
    local row
    rows=() failures=0
    verify_host Updater updater same_program "$reference/K+Updater" "$PANEL/root/usr/bin/K+Updater"
    verify_host Kernel kernel card_holds "$reference/boot/uImage"
    verify_host Drivers drivers tree_installed "$reference/drivers"
    verify_host GUI gui tree_installed "$reference/gui"
    for row in "${modules[@]}"; do
        read_module "$row"
        verify_module
    done
    verify "Root file system" "$(version_of rootfs <<<"$installed")" "$(version_now rootfs)" "left alone" \
        test "$(version_now rootfs)" = "$(version_of rootfs <<<"$installed")"
    verify "Temporary files" "" "" "removed" no_temporary_files
}

# The module that was put in another's place.
verify_exchanged() {
    read_module "${spare_modules[0]}"
    shown+=", exchanged"
    verify_module
}

# ITEM BEFORE AFTER EVIDENCE COMMAND...: a row of the table, verified when the command succeeds.
verify() {
    local verdict="yes, $4"
    if ! "${@:5}" &>/dev/null; then
        verdict=NO
        failures=$((failures + 1))
    fi
    rows+=("$(printf '%-18s %-9s %-9s %s' "$1" "$2" "$3" "$verdict")")
}

version_of() {
    sed -n "s/.*\"$1\":[^\"]*\"\([^\"]*\)\".*/\1/p"
}

version_now() {
    version_of "$1" <"$PANEL/root/keldra/config/system.manifest"
}

# NAME KEY COMMAND... FILE: an item of the panel itself.
verify_host() {
    local bytes packed_version
    bytes=$(du -bs --apparent-size "$4" | cut -f1)
    packed_version=$(sed -n "s/^  \"$2\".*\"version\": \"\(.*\)\".*/\1/p" "$content/package.json")
    [[ -f $4 ]] || bytes=$(find "$4" -name '.*' -prune -o -type f -printf '%s\n' | awk '{ n += $1 } END { print n }')
    verify "$1" "$(version_of "$2" <<<"$installed")" "$(version_now "$2")" "$bytes bytes equal" \
        at_version "$2" "$packed_version" "${@:3}"
}

at_version() {
    [[ $(version_now "$1") == "$2" ]] && "${@:3}"
}

same_program() {
    cmp "$1" "$2" && [[ -x $2 ]] && ! cmp -s "$2" "$programs/K+Updater"
}

card_holds() {
    cmp -n "$(stat -c %s "$1")" "$1" "$PANEL_CARD"
}

# TREE: every visible file is on the panel, with the same content and the same right to be executed; no hidden one.
tree_installed() {
    local file installed_file
    while IFS= read -r -d '' file; do
        installed_file=$PANEL/root/$file
        if [[ /$file == */.* ]]; then
            [[ ! -e $installed_file ]] || return 1
        else
            cmp "$1/$file" "$installed_file" || return 1
            [[ $(executable_by "$1/$file") == "$(executable_by "$installed_file")" ]] || return 1
        fi
    done < <(cd "$1" && find . -type f -printf '%P\0')
}

executable_by() {
    echo $((0$(stat -c %a "$1") & 0111))
}

no_temporary_files() {
    ! compgen -G "$PANEL/root/keldra/tmp/keldra_update*"
}

# The module that read_module has set.
verify_module() {
    local size
    size=$(firmware_size "$reference/firmware/$image")
    case $fate in
    flash) verify "$shown" "$old" "$(reported version)" "$size bytes equal" module_flashed ;;
    current) verify "$shown" "$old" "$(reported version)" "left alone, equal" module_left_alone ;;
    absent) verify "$shown" "absent" "absent" "not found" panel_said "$shown not found" ;;
    esac
}

reported() {
    sed -n "s/^module name=$name .* $1=\([^ ]*\).*/\1/p" "$work/report.txt"
}

module_flashed() {
    holds_its_image && (($(reported written) > 0))
}

module_left_alone() {
    holds_its_image && (($(reported written) == 0)) && panel_said "$shown up-to-date"
}

holds_its_image() {
    firmware_equal "$reference/firmware/$image" "$work/flash/$name.hex" && [[ $(reported version) == "$packed" &&
        $(reported open-page) == no ]]
}
