# shellcheck shell=bash
# Update packages, for bash scripts to source.

# package_write_checksum FILE: FILE.sha, as the checksum tools write it.
package_write_checksum() {
    (cd "$(dirname "$1")" && sha1sum "$(basename "$1")" >"$(basename "$1").sha")
}

# package_pack CONTENT FOLDER: packs the content, whose update.manifest must be there, into FOLDER's
# keldra_update.tgz and keldra_update.tgz.sha. The manifest goes last: where it is, everything is. All files
# belong to root, as they do on the panel: unpacking them must not ask for an owner that the panel can't give.
package_pack() {
    local content=$1 archive=$2/keldra_update.tgz files
    package_write_checksum "$content/update.manifest"
    mapfile -t files < <(cd "$content" && ls -A --ignore='update.manifest*')
    tar -C "$content" --owner=root:0 --group=root:0 --sort=name -czf "$archive" \
        -- "${files[@]}" update.manifest.sha update.manifest
    package_write_checksum "$archive"
}
