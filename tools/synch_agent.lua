-- Shows the packets between the daemon and the synch agent (TCP port 12345) in Wireshark and tshark:
--
--     tshark -X lua_script:tools/synch_agent.lua -i lo -f "tcp port 12345" -V
--
-- A packet is a header of 14 bytes, the application id (the SSID) and a payload of items (type, length, value);
-- integers are big-endian. What an item means depends on the packet it is in. Whatever is not as it should be is an
-- expert information; keys are shown as they are, so a capture is as secret as the keys in it.
--
-- Written for the Lua interface of Wireshark 4.0 and later.

local synch = Proto("synch_agent", "Synch Agent Protocol")

local PORT = 12345
local HEADER_SIZE = 14
local PACKET_MAX = 4395 -- the daemon drops the connection at the header of a larger one
local RECORD_HEADER_SIZE = 4

local PACKET_TYPES = {
    [3] = "Portal login",
    [10] = "Client information",
    [12] = "Inter-AP",
    [16] = "VLAN gateway",
    [32] = "Register",
    [33] = "Registration accepted",
    [34] = "Registration refused",
    [35] = "Unregister",
    [36] = "RF neighbours changed",
}
local PMK_RECORD, PORTAL_RECORD = 1, 2
local RECORD_KINDS = { [PMK_RECORD] = "PMK", [PORTAL_RECORD] = "Portal login" }

-- Fields

local field = {}

local function define(name, make, label, ...)
    field[name] = make("synch_agent." .. name, label, ...)
end

define("version", ProtoField.uint8, "Version")
define("type", ProtoField.uint8, "Packet type", base.DEC, PACKET_TYPES)
define("path", ProtoField.uint8, "Packet path")
define("flag", ProtoField.uint8, "Flag")
define("subtype", ProtoField.uint8, "Subtype")
define("appid_len", ProtoField.uint8, "Length of the application id")
define("payload_len", ProtoField.uint16, "Length of the payload")
define("mac", ProtoField.ether, "MAC address")
define("appid", ProtoField.string, "Application id (SSID)")
define("payload", ProtoField.bytes, "Payload")
define("undecoded", ProtoField.bytes, "Not decoded")

define("item", ProtoField.none, "Item")
define("item.type", ProtoField.uint8, "Type")
define("item.length", ProtoField.uint8, "Length")
define("item.value", ProtoField.bytes, "Value")

define("record", ProtoField.none, "Record")
define("record.kind", ProtoField.uint16, "Kind", base.DEC, RECORD_KINDS)
define("record.length", ProtoField.uint16, "Length of the items")
define("record.padding", ProtoField.bytes, "Zeros in place of items")

define("request_flag", ProtoField.uint8, "Request flag")
define("interface", ProtoField.string, "Interface")
define("number", ProtoField.uint32, "Number")
define("application", ProtoField.string, "Application")
define("client_mac", ProtoField.ether, "Client MAC address")
define("steering_attempts", ProtoField.uint8, "Steering attempts")
define("inter_ap_flag", ProtoField.uint8, "Inter-AP flag")
define("synch_period", ProtoField.uint8, "Synchronisation period")
define("bw_download_limit", ProtoField.int32, "Download limit")
define("bw_upload_limit", ProtoField.int32, "Upload limit")

define("pmk", ProtoField.bytes, "PMK")
define("pmk.lifetime", ProtoField.uint32, "Remaining lifetime in seconds")
define("pmk.identity", ProtoField.string, "Identity")
define("pmk.eap_type", ProtoField.uint8, "EAP type of the authentication server")
define("pmk.vlan_id", ProtoField.int32, "VLAN id")
define("pmk.vlan_0", ProtoField.uint8, "Follows VLAN id 0")
define("pmk.interim_interval", ProtoField.int32, "Accounting interim interval")

define("portal.client_mac", ProtoField.string, "Client MAC address")
define("portal.ip", ProtoField.string, "IP address")
define("portal.remaining", ProtoField.int32, "Remaining login time in seconds")
define("portal.blackout", ProtoField.int32, "Blackout duration in seconds")
define("portal.username", ProtoField.string, "User name")
define("portal.login_time", ProtoField.uint32, "Login time")

define("gateway.profile_id", ProtoField.uint16, "SSID profile id")
define("gateway.vlan_id", ProtoField.uint16, "VLAN id")
define("gateway.ip", ProtoField.ipv4, "Gateway IP address")
define("gateway.mac", ProtoField.ether, "Gateway MAC address")
define("gateway.protocol", ProtoField.uint8, "Protocol")
define("gateway.subnet_mask", ProtoField.ipv4, "Subnet mask")
define("gateway.dhcp_server", ProtoField.ipv4, "DHCP server")
define("gateway.tunnel_profile_id", ProtoField.uint16, "Tunnel profile id")
define("gateway.is_nat_profile", ProtoField.uint8, "Is a NAT profile")
define("gateway.unused", ProtoField.uint8, "Unused")

synch.fields = field

-- Expert information

local function complaint(name, text, group, severity)
    return ProtoExpert.new("synch_agent.expert." .. name, text, group, severity)
end

local expert = {
    too_large = complaint("too_large", "Larger than " .. PACKET_MAX .. " bytes: the daemon drops the connection",
        expert.group.MALFORMED, expert.severity.ERROR),
    cut_short = complaint("cut_short", "The capture holds only a part of the packet",
        expert.group.MALFORMED, expert.severity.WARN),
    version = complaint("version", "The version is not 1", expert.group.PROTOCOL, expert.severity.WARN),
    flag = complaint("flag", "The flag is not 0", expert.group.PROTOCOL, expert.severity.WARN),
    unknown_packet = complaint("unknown_packet", "Unknown packet type or subtype",
        expert.group.UNDECODED, expert.severity.WARN),
    unknown_item = complaint("unknown_item", "Unknown item", expert.group.UNDECODED, expert.severity.NOTE),
    item_length = complaint("item_length", "The item has not the length that its type calls for",
        expert.group.MALFORMED, expert.severity.ERROR),
    item_overrun = complaint("item_overrun", "The item runs past the end",
        expert.group.MALFORMED, expert.severity.ERROR),
    unknown_record = complaint("unknown_record", "Unknown kind of record",
        expert.group.MALFORMED, expert.severity.ERROR),
    record_overrun = complaint("record_overrun", "The record runs past the end of the payload",
        expert.group.MALFORMED, expert.severity.ERROR),
    record_without_items = complaint("record_without_items",
        "PMK without identity: its items are counted but not there", expert.group.PROTOCOL, expert.severity.NOTE),
    padding = complaint("padding", "The zeros at the end are not as long as the items that are not there",
        expert.group.MALFORMED, expert.severity.ERROR),
    expired = complaint("expired", "The PMK has expired: the lifetime is a negative number",
        expert.group.PROTOCOL, expert.severity.NOTE),
    long_identity = complaint("long_identity", "The identity is longer than its length byte can tell",
        expert.group.PROTOCOL, expert.severity.NOTE),
}
synch.experts = expert

-- What the items mean. A known item is its name and the fields that follow each other in its value.

local function number(name, size)
    return { field = field[name], size = size }
end

local function text(name)
    return { field = field[name], text = true }
end

local function text_padded_with_nuls(name, size)
    return { field = field[name], size = size, text = true, padded = true }
end

local function item(name, ...)
    local parts, size = { ... }, 0
    for _, part in ipairs(parts) do
        size = size and part.size and size + part.size -- without a size the only part takes the whole value
    end
    return { name = name, parts = parts, size = size }
end

local function note_expired(value, tree)
    if value:int() < 0 then
        tree:add_proto_expert_info(expert.expired)
    end
end

local IDENTITY = 3
local PMK_ITEMS = {
    [10] = item("Client", number("client_mac", 6)),
    [1] = item("PMK", number("pmk", 32)),
    [2] = item("Lifetime", number("pmk.lifetime", 4)),
    [IDENTITY] = item("Identity", text("pmk.identity")),
    [4] = item("EAP type", number("pmk.eap_type", 1)),
    [6] = item("VLAN", number("pmk.vlan_id", 4)),
    [7] = item("Bandwidth limits", number("bw_download_limit", 4), number("bw_upload_limit", 4)),
    [9] = item("Accounting", number("pmk.interim_interval", 4)),
    [8] = item("VLAN 0", number("pmk.vlan_0", 1)),
}
PMK_ITEMS[2].check = note_expired

local PORTAL_ITEMS = {
    [8] = item("Client", text_padded_with_nuls("portal.client_mac", 20)),
    [7] = item("IP address", text("portal.ip")),
    [6] = item("Remaining login time", number("portal.remaining", 4)),
    [16] = item("Blackout", number("portal.blackout", 4)),
    [14] = item("User name", text("portal.username")),
    [15] = item("Login time", number("portal.login_time", 4)),
    [17] = item("Download limit", number("bw_download_limit", 4)),
    [18] = item("Upload limit", number("bw_upload_limit", 4)),
}

local GATEWAY_ITEMS = {
    [16] = item("VLAN gateway",
        number("gateway.profile_id", 2),
        number("gateway.vlan_id", 2),
        number("gateway.ip", 4),
        number("gateway.mac", 6),
        number("gateway.protocol", 1),
        number("gateway.subnet_mask", 4),
        number("gateway.dhcp_server", 4),
        number("gateway.tunnel_profile_id", 2),
        number("gateway.is_nat_profile", 1),
        number("gateway.unused", 1)),
}

local REGISTRATION_ITEMS = {
    [10] = item("Interface", text("interface")),
    [11] = item("Number", number("number", 4)),
    [12] = item("Application", text("application")),
}

local REQUEST_ITEMS = { [30] = item("Request flag", number("request_flag", 1)) }

local STEERING_ITEMS = {
    [5] = item("Client", number("client_mac", 6)),
    [6] = item("Steering attempts", number("steering_attempts", 1)),
}

local PARAMETER_ITEMS = {
    [9] = item("Inter-AP flag", number("inter_ap_flag", 1)),
    [10] = item("Synchronisation period", number("synch_period", 1)),
}

local RECORD_ITEMS = { [PMK_RECORD] = PMK_ITEMS, [PORTAL_RECORD] = PORTAL_ITEMS }

-- By type and subtype; by type alone where the subtype does not matter.
local PACKETS = {
    ["3/1"] = { name = "Portal login", items = PORTAL_ITEMS },
    ["10/1"] = { name = "Client information request", items = REQUEST_ITEMS },
    ["10/2"] = { name = "Client information", records = true },
    ["12/2"] = { name = "Steering attempts", items = STEERING_ITEMS },
    ["12/3"] = { name = "Inter-AP parameters", items = PARAMETER_ITEMS },
    ["16/1"] = { name = "VLAN gateway", items = GATEWAY_ITEMS },
    ["32/0"] = { name = "Register", items = REGISTRATION_ITEMS },
    [33] = { name = "Registration accepted" },
    [34] = { name = "Registration refused" },
    ["35/0"] = { name = "Unregister", items = REGISTRATION_ITEMS },
    [36] = { name = "RF neighbours changed" },
}

-- Dissection. `from` is the first byte, `to` the one after the last; all of them have been captured.

-- Whatever is not plain UTF-8 is escaped; Wireshark would end a text at its first NUL.
local function text_of(bytes)
    if bytes:len() == 0 then
        return ""
    end
    local raw = bytes:raw()
    if bytes:string(ENC_UTF_8) == raw and not raw:find("\0", 1, true) then
        return raw
    end
    return (raw:gsub("[^ -~]", function(byte)
        return ("\\x%02x"):format(byte:byte())
    end))
end

local function without_padding(bytes)
    return bytes(0, #bytes:raw():match("^(.-)\0*$"))
end

local function add_part(tvb, from, size, part, tree)
    local bytes = tvb(from, size)
    if part.text then
        tree:add(part.field, bytes, text_of(part.padded and without_padding(bytes) or bytes))
    else
        tree:add(part.field, bytes)
    end
end

local function add_value(tvb, from, length, known, tree)
    if not known or (known.size and known.size ~= length) then
        tree:add(field["item.value"], tvb(from, length))
        tree:add_proto_expert_info(known and expert.item_length or expert.unknown_item)
        return
    end
    for _, part in ipairs(known.parts) do
        local size = part.size or length
        add_part(tvb, from, size, part, tree)
        from = from + size
    end
    if known.check then
        known.check(tvb(from - length, length), tree)
    end
end

local function add_undecoded(tvb, from, to, tree, reason)
    tree:add(field.undecoded, tvb(from, to - from)):add_proto_expert_info(reason)
end

-- The length byte holds the lowest 8 bits of an identity's length. The record's length tells the others, because the
-- items beside the identity are 53 bytes and optional ones of less than 256.
local function identity_length(lowest_bits, record_length)
    local multiples = math.floor((record_length - 53 - lowest_bits) / 256)
    return lowest_bits + 256 * math.max(multiples, 0)
end

local function add_items(tvb, from, to, items, tree, record_length)
    while from < to do
        local length = from + 1 < to and tvb(from + 1, 1):uint()
        local item_type = tvb(from, 1):uint()
        local whole_length = length
        if length and items == PMK_ITEMS and item_type == IDENTITY then
            whole_length = identity_length(length, record_length)
        end
        if not length or from + 2 + whole_length > to then
            add_undecoded(tvb, from, to, tree, expert.item_overrun)
            return
        end

        local known = items[item_type]
        local branch = tree:add(field.item, tvb(from, 2 + whole_length))
        branch:append_text(": " .. (known and known.name or "unknown"))
        branch:add(field["item.type"], tvb(from, 1))
        branch:add(field["item.length"], tvb(from + 1, 1))
        if whole_length ~= length then
            branch:add_proto_expert_info(expert.long_identity)
        end
        add_value(tvb, from + 2, whole_length, known, branch)
        from = from + 2 + whole_length
    end
end

local function only_zeros(tvb, from, to)
    return not tvb:raw(from, to - from):find("[^\0]")
end

local function add_record(tvb, from, to, kind, length, tree)
    local record = tree:add(field.record, tvb(from, to - from))
    record:append_text(": " .. RECORD_KINDS[kind])
    record:add(field["record.kind"], tvb(from, 2))
    record:add(field["record.length"], tvb(from + 2, 2))
    add_items(tvb, from + RECORD_HEADER_SIZE, to, RECORD_ITEMS[kind], record, length)
    return record
end

-- A PMK record without identity is its header alone, although its length counts the items: the next record follows at
-- once, and as many zeros as there are items missing end the payload. No item has the type 0.
local function add_records(tvb, from, to, tree)
    local missing = 0
    while from < to and not only_zeros(tvb, from, to) do
        local items = from + RECORD_HEADER_SIZE
        local kind = items <= to and tvb(from, 2):uint()
        if not RECORD_KINDS[kind] then
            add_undecoded(tvb, from, to, tree, kind and expert.unknown_record or expert.record_overrun)
            return
        end

        local length = tvb(from + 2, 2):uint()
        local next_record = items + length
        if kind == PMK_RECORD and length > 0 and items < to and tvb(items, 1):uint() == 0 then
            missing = missing + length
            next_record = items
            add_record(tvb, from, items, kind, length, tree):add_proto_expert_info(expert.record_without_items)
        elseif next_record > to then
            next_record = to
            add_record(tvb, from, to, kind, length, tree):add_proto_expert_info(expert.record_overrun)
        else
            add_record(tvb, from, next_record, kind, length, tree)
        end
        from = next_record
    end

    local padding = tree
    if from < to then
        padding = tree:add(field["record.padding"], tvb(from, to - from))
    end
    if to - from ~= missing then
        padding:add_proto_expert_info(expert.padding)
    end
end

local function add_payload(tvb, from, to, packet, tree)
    if from >= to then
        return
    elseif not packet then
        tree:add(field.payload, tvb(from, to - from))
    elseif packet.records then
        add_records(tvb, from, to, tree)
    elseif packet.items then
        add_items(tvb, from, to, packet.items, tree)
    else
        tree:add(field.payload, tvb(from, to - from)) -- nobody reads it
    end
end

-- Gives the packet's type and subtype, or nothing when they are unknown.
local function add_header(tvb, tree)
    local version = tree:add(field.version, tvb(0, 1))
    local packet_type = tree:add(field.type, tvb(1, 1))
    tree:add(field.path, tvb(2, 1))
    local flag = tree:add(field.flag, tvb(3, 1))
    tree:add(field.subtype, tvb(4, 1))
    tree:add(field.appid_len, tvb(5, 1))
    tree:add(field.payload_len, tvb(6, 2))
    tree:add(field.mac, tvb(8, 6))

    local number_of_type = tvb(1, 1):uint()
    local packet = PACKETS[number_of_type .. "/" .. tvb(4, 1):uint()] or PACKETS[number_of_type]
    if tvb(0, 1):uint() ~= 1 then
        version:add_proto_expert_info(expert.version)
    end
    if tvb(3, 1):uint() ~= 0 then
        flag:add_proto_expert_info(expert.flag)
    end
    if not packet then
        packet_type:add_proto_expert_info(expert.unknown_packet)
    end
    return packet
end

local function packet_size(tvb, offset)
    return HEADER_SIZE + tvb(offset + 5, 1):uint() + tvb(offset + 6, 2):uint()
end

-- Shows one packet, or what has been captured of it, and gives its text for the list of packets.
local function dissect_packet(tvb, root)
    local captured = tvb:len()
    local tree = root:add(synch, tvb(0, captured))
    if captured < HEADER_SIZE then
        add_undecoded(tvb, 0, captured, tree, expert.cut_short)
        return "Part of a packet"
    end

    local packet = add_header(tvb, tree)
    local summary = packet and packet.name or ("Unknown packet " .. tvb(1, 1):uint() .. "/" .. tvb(4, 1):uint())
    local size = packet_size(tvb, 0)
    if size > PACKET_MAX then
        tree:add_proto_expert_info(expert.too_large)
        if captured > HEADER_SIZE then
            tree:add(field.undecoded, tvb(HEADER_SIZE, captured - HEADER_SIZE))
        end
        return summary .. " [too large]"
    end
    if captured < size then
        tree:add_proto_expert_info(expert.cut_short)
    end

    local payload = math.min(HEADER_SIZE + tvb(5, 1):uint(), captured)
    if payload > HEADER_SIZE then
        local appid = tvb(HEADER_SIZE, payload - HEADER_SIZE)
        tree:add(field.appid, appid, text_of(appid))
        summary = summary .. ' "' .. text_of(appid) .. '"'
    end
    tree:append_text(": " .. summary)
    add_payload(tvb, payload, captured, packet, tree)
    return summary
end

-- Of a packet that is too large nothing is waited for, as in the daemon: it is what the segment holds of it.
local function size_in_stream(tvb, _, offset)
    local available = tvb:len() - offset
    if available < HEADER_SIZE then
        return HEADER_SIZE
    end
    local size = packet_size(tvb, offset)
    return size <= PACKET_MAX and size or available
end

-- A frame may end one packet and hold others; the list has one line for all of them.
local function add_to_list(summary, pinfo)
    if pinfo.private.synch_agent then
        pinfo.cols.info:append("; " .. summary)
    else
        pinfo.cols.info:set(summary)
        pinfo.private.synch_agent = "listed"
    end
end

local function dissect_packet_of_stream(tvb, pinfo, root)
    add_to_list(dissect_packet(tvb, root), pinfo)
    return tvb:len()
end

function synch.dissector(tvb, pinfo, root)
    pinfo.cols.protocol = "SYNCH"
    dissect_tcp_pdus(tvb, root, HEADER_SIZE, size_in_stream, dissect_packet_of_stream)
    return tvb:len()
end

DissectorTable.get("tcp.port"):add(PORT, synch)
