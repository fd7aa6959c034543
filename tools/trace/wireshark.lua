-- Takes apart what bus-trace --pcap has written.
--   wireshark -X lua_script:wireshark.lua FILE

local bus = Proto("keldrabus", "Keldra+ bus")

local directions = { [0] = "from the panel", [1] = "to the panel", [2] = "unknown", [3] = "mark" }
local ids = {
    [1] = "command", [2] = "row", [3] = "reply", [4] = "high row", [5] = "serial reply", [6] = "identification",
    [16] = "system command", [21] = "module status", [22] = "module identity"
}
local commands = { [1] = "start of page", [2] = "second-generation reset", [3] = "status", [4] = "write page",
    [5] = "erase", [6] = "erase all" }
local arguments = { [0x21] = "restart", [0x2C] = "enter bootloader", [0x37] = "update mode" }
local statuses = { [0] = "OK", [1] = "BADCHECKSUM", [2] = "MISSEDPACKET", [3] = "WRONGMODULE", [4] = "WRITEERR",
    [5] = "ERASEERR", [6] = "IGNOREPG" }

local f = {
    direction = ProtoField.uint8("keldrabus.direction", "Direction", base.DEC, directions),
    mark = ProtoField.string("keldrabus.mark", "Mark"),
    noise = ProtoField.bytes("keldrabus.noise", "Bytes of no frame"),
    sync = ProtoField.string("keldrabus.sync", "Sync"),
    id = ProtoField.uint8("keldrabus.id", "Message", base.DEC, ids),
    length = ProtoField.uint8("keldrabus.length", "Length"),
    payload = ProtoField.bytes("keldrabus.payload", "Payload"),
    module = ProtoField.uint8("keldrabus.module", "Module"),
    command = ProtoField.uint8("keldrabus.command", "Command", base.DEC, commands),
    argument = ProtoField.uint8("keldrabus.argument", "Argument", base.HEX, arguments),
    address = ProtoField.uint32("keldrabus.address", "Address", base.HEX),
    size = ProtoField.uint16("keldrabus.size", "Bytes of the page"),
    blocks = ProtoField.uint8("keldrabus.blocks", "Pages"),
    row = ProtoField.uint16("keldrabus.row", "Row"),
    data = ProtoField.bytes("keldrabus.data", "Data"),
    status = ProtoField.uint8("keldrabus.status", "Status", base.DEC, statuses),
    hardware = ProtoField.uint8("keldrabus.hardware", "Hardware revision"),
    version = ProtoField.string("keldrabus.version", "Version"),
    kind = ProtoField.uint8("keldrabus.kind", "Processor"),
    crc = ProtoField.uint16("keldrabus.crc", "CRC", base.HEX),
    crc_good = ProtoField.bool("keldrabus.crc_good", "CRC is right"),
    closing = ProtoField.bytes("keldrabus.closing", "Closing bytes"),
    closing_good = ProtoField.bool("keldrabus.closing_good", "Closing bytes are right"),
}
bus.fields = f

local function crc16(range)
    local crc = 0xFFFF
    for i = 0, range:len() - 1 do
        crc = bit32.bxor(crc, bit32.lshift(range(i, 1):uint(), 8))
        for _ = 1, 8 do
            local shifted = bit32.band(bit32.lshift(crc, 1), 0xFFFF)
            crc = bit32.btest(crc, 0x8000) and bit32.bxor(shifted, 0x1021) or shifted
        end
    end
    return crc
end

-- The address of a start of page or an erase: its upper half, if it has one, stands at the end, low byte first.
local function add_address(tree, p)
    local address = p(2, 2):uint()
    if p:len() >= 8 then
        address = address + p(6, 2):le_uint() * 0x10000
    end
    tree:add(f.address, p(2, 2), address)
    return string.format(" %08X", address)
end

local function add_command(tree, p)
    if p:len() < 2 then
        return ""
    end
    local command = p(1, 1):uint()
    tree:add(f.module, p(0, 1))
    tree:add(f.command, p(1, 1))
    local text = string.format(" %s module %d", commands[command] or "?", p(0, 1):uint())
    if (command == 1 or command == 5) and p:len() >= 6 then
        text = text .. add_address(tree, p)
        tree:add(command == 1 and f.size or f.blocks, p(4, command == 1 and 2 or 1))
    end
    return text
end

local function add_row(tree, p, width)
    if p:len() < width then
        return ""
    end
    tree:add_le(f.row, p(0, width))
    if p:len() > width then
        tree:add(f.data, p(width))
    end
    return string.format(" %d", p(0, width):le_uint())
end

local function add_reply(tree, p)
    if p:len() < 2 or p:len() == 6 then
        return ""
    end
    tree:add(f.status, p(0, 1))
    local width = p:len() > 2 and 2 or 1
    tree:add_le(f.row, p(1, width))
    local text = string.format(" %s row %d", statuses[p(0, 1):uint()] or "?", p(1, width):le_uint())
    if p:len() > 3 then
        tree:add(f.module, p(3, 1))
        text = text .. string.format(" module %d", p(3, 1):uint())
    end
    return text
end

local function version(p, at)
    return string.format("%d.%d.%d", p(at + 2, 1):uint(), p(at + 1, 1):uint(), p(at, 1):uint())
end

local function add_identification(tree, p)
    if p:len() < 6 or p:len() == 11 then
        return ""
    end
    tree:add(f.hardware, p(0, 1))
    tree:add(f.version, p(1, 3), version(p, 1))
    tree:add(f.kind, p(4, 1))
    tree:add(f.module, p(5, 1))
    return string.format(" module %d version %s", p(5, 1):uint(), version(p, 1))
end

local function add_identity(tree, p)
    if p:len() < 11 then
        return ""
    end
    local at = p(0, 1):uint() == 2 and 1 or 7
    tree:add(f.module, p(0, 1))
    tree:add(f.version, p(at, 3), version(p, at))
    if at == 7 and p:len() > 11 then
        tree:add(f.hardware, p(11, 1))
    end
    return string.format(" number %d version %s", p(0, 1):uint(), version(p, at))
end

local function add_system_command(tree, p)
    if p:len() < 2 then
        return ""
    end
    tree:add(f.module, p(0, 1))
    tree:add(f.argument, p(1, 1))
    return string.format(" %s module %d", arguments[p(1, 1):uint()] or "?", p(0, 1):uint())
end

local parts = {
    [1] = add_command, [2] = function(tree, p) return add_row(tree, p, 1) end, [3] = add_reply,
    [4] = function(tree, p) return add_row(tree, p, 2) end, [5] = add_reply, [6] = add_identification,
    [16] = add_system_command, [22] = add_identity
}

-- The text of a frame; none when the bytes are none.
local function add_frame(tree, frame)
    if frame:len() < 8 or frame(0, 4):string() ~= "K+MB" or frame:len() < frame(5, 1):uint() + 8 then
        return nil
    end
    local id, length = frame(4, 1):uint(), frame(5, 1):uint()
    tree:add(f.sync, frame(0, 4))
    tree:add(f.id, frame(4, 1))
    tree:add(f.length, frame(5, 1))
    local text = ids[id] or "unknown"
    if length > 0 then
        local payload = frame(6, length)
        local branch = tree:add(f.payload, payload)
        text = text .. (parts[id] and parts[id](branch, payload) or "")
        local good = crc16(payload) == frame(6 + length, 2):le_uint()
        tree:add_le(f.crc, frame(6 + length, 2))
        tree:add(f.crc_good, frame(6 + length, 2), good):set_generated()
        text = text .. (good and "" or "  CRC-ERROR")
    end
    local closing = frame:len() >= length + 10 and frame(8 + length, 2) or nil
    if closing then
        tree:add(f.closing, closing)
    end
    local closed = closing ~= nil and closing:uint() == 0x0D0A
    tree:add(f.closing_good, closed):set_generated()
    return text .. (closed and "" or "  CLOSING-ERROR")
end

function bus.dissector(buffer, packet, root)
    packet.cols.protocol = "K+MB"
    local tree = root:add(bus, buffer())
    local direction = buffer(0, 1):uint()
    tree:add(f.direction, buffer(0, 1))
    local arrow = ({ [0] = "> ", [1] = "< ", [3] = "! " })[direction] or "? "
    local rest = buffer:len() > 1 and buffer(1) or nil
    if rest == nil then
        return
    end
    if direction == 3 then
        tree:add(f.mark, rest)
        packet.cols.info = arrow .. rest:string()
        return
    end
    local text = add_frame(tree, rest)
    if text == nil then
        tree:add(f.noise, rest)
        text = "noise"
    end
    packet.cols.info = arrow .. text
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, bus)
