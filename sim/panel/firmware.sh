# shellcheck shell=bash
# Firmware images in Intel HEX, for bash scripts to source. They hold random bytes, so that nothing but a right
# update can make flash equal to one.

# firmware_flat FILE ADDRESS SIZE [ADDRESS SIZE]: an image of one or two pieces, written by objcopy.
firmware_flat() {
    local file=$1 first=$1.first second=$1.second options=()
    head -c $(($3)) /dev/urandom >"$first"
    if (($# > 3)); then
        head -c $(($5)) /dev/urandom >"$second"
        options=(--add-section ".second=$second" --set-section-flags ".second=alloc,load,contents"
            --change-section-address ".second=$4")
    fi
    objcopy -I binary -O ihex --change-section-address ".data=$2" "${options[@]}" "$first" "$file"
    rm -f "$first" "$second"
}

# firmware_pic24 FILE [UNIT SIZE]...: an image for PIC24 addressing, of pieces at even unit addresses. An
# instruction of 3 bytes has two units and stands in the file as 4 bytes, the last of them zero, at twice its unit
# address. SIZE counts program bytes, a multiple of 12. (objcopy would write segment records below 1 MiB.)
firmware_pic24() {
    local file=$1
    shift
    while (($#)); do
        echo "at $(($1 * 2))"
        head -c $(($2)) /dev/urandom | od -An -v -tu1 -w12
        shift 2
    done | awk '
        function record(type, address, count, bytes,    i, sum, line) {
            sum = count + int(address / 256) + address % 256 + type
            line = sprintf(":%02X%04X%02X", count, address, type)
            for (i = 1; i <= count; i++) {
                sum += bytes[i]
                line = line sprintf("%02X", bytes[i])
            }
            printf "%s%02X\n", line, (256 - sum % 256) % 256
        }
        $1 == "at" { address = $2; next }
        {
            if (upper != int(address / 65536)) {
                upper = int(address / 65536)
                bytes[1] = 0
                bytes[2] = upper
                record(4, 0, 2, bytes)
            }
            for (i = 0; i < 4; i++) {
                for (k = 1; k <= 3; k++)
                    bytes[4 * i + k] = $(3 * i + k)
                bytes[4 * i + 4] = 0
            }
            record(0, address % 65536, 16, bytes)
            address += 16
        }
        END { record(1, 0, 0, bytes) }' >"$file"
}

firmware_start() {
    objdump -h "$1" | awk '$2 ~ /^\.sec/ { print $4; exit }'
}

# firmware_size IMAGE: bytes of data that its records hold.
firmware_size() {
    tr -d '\r' <"$1" | awk '/^:......00/ { digits += length($1) - 11 } END { print digits / 2 }'
}

# firmware_equal IMAGE DUMP: true when both hold the same bytes at the same addresses. What neither has counts as
# erased. Both are read by objcopy, which shares no code with whatever wrote the flash.
firmware_equal() {
    local file
    for file in "$1" "$2"; do
        objcopy -I ihex -O binary --gap-fill 0xFF "$file" "$file.bin" 2>/dev/null || return 1
    done
    [[ $(firmware_start "$1") == "$(firmware_start "$2")" ]] && cmp -s "$1.bin" "$2.bin"
}
