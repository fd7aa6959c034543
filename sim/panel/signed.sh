# shellcheck shell=bash disable=SC2154
# A panel that takes signed packages only, and what others try with it, for bash scripts to source behind panel.sh and
# package.sh. Of the script that sources it, it uses: keys (a folder for keys, which are made anew and thrown away).

# signed_make_keys: the maker's, and somebody else's.
signed_make_keys() {
    local name
    mkdir -p "$keys"
    for name in maker other; do
        minisign -GWf -p "$keys/$name.pub" -s "$keys/$name.sec" >/dev/null
    done
    package_key=$keys/maker.sec
}

# signed_trust_maker: from now on the panel takes the maker's packages alone.
signed_trust_maker() {
    mkdir -p "$PANEL/root/keldra/config/keys"
    cp "$keys/maker.pub" "$PANEL/root/keldra/config/keys"
    sed -i 's#^EndConfigFile#trusted_keys = /keldra/config/keys\n&#' "$PANEL/root/keldra/config/vx3.cfg"
}

# signed_refusals PACKAGE: a panel that has just been started refuses what was done to the package, one after the other,
# and takes the package itself in the end. PACKAGE holds it with its signature.
signed_refusals() {
    local stick=$PANEL/usb/keldra_update.tgz
    panel_wait_for 60 "Package not trusted: no signature" || return 1
    cp "$1/keldra_update.tgz.minisig" "$stick.minisig"
    minisign -S -s "$keys/other.sec" -m "$stick" >/dev/null
    panel_press start 30 "Package not trusted: unknown key" || return 1
    cp "$1/keldra_update.tgz.minisig" "$stick.minisig"
    printf x | dd of="$stick" bs=1 seek=1000 conv=notrunc status=none
    package_write_checksum "$stick"
    panel_press start 30 "Package not trusted: signature does not match" || return 1
    sed '3s/.*/trusted comment: a better one/' "$1/keldra_update.tgz.minisig" >"$stick.minisig"
    cp "$1"/keldra_update.tgz{,.sha} "$PANEL/usb"
    panel_press start 30 "Package not trusted: comment does not match" || return 1
    cp "$1/keldra_update.tgz.minisig" "$stick.minisig"
    panel_press start 60 "Updater file loaded." && panel_said "Package signed by key"
}
