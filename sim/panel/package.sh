# shellcheck shell=bash
# shellcheck disable=SC2154
# Update packages, for bash scripts to source. Of the script that sources it, it uses: programs (where the build lies).

# package_build CONTENT FOLDER [OPTION...]: makes the package that the content's package.json describes, signed by
# package_key if that is set. Its programs run here, and its kernel nowhere.
package_build() {
    "$programs/keldra-package" build "$1" -o "$2" --arch any --kernel any ${package_key:+--sign "$package_key"} "${@:3}"
}

# package_pack CONTENT FOLDER: packs the content, whose update.manifest must be there, unseen: what must not be in a
# package, too. The manifest goes last: where it is, everything is.
package_pack() {
    local content=$1 archive=$2/keldra_update.tgz files
    package_write_checksum "$content/update.manifest"
    mapfile -t files < <(cd "$content" && ls -A --ignore='update.manifest*')
    tar -C "$content" --owner=root:0 --group=root:0 --sort=name -czf "$archive" \
        -- "${files[@]}" update.manifest.sha update.manifest
    package_write_checksum "$archive"
}

# package_write_checksum FILE: FILE.sha, as the checksum tools write it.
package_write_checksum() {
    (cd "$(dirname "$1")" && sha1sum "$(basename "$1")" >"$(basename "$1").sha")
}
