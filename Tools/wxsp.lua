-- Dissector of WXSP for Wireshark and tshark 4.0. Docs/WireView.md tells how to use it.
--
--   register  ports and heuristic --> dissect (cuts packets) --> walk (fields) --> follow (state)
--
-- What is known of a connection lives in `connections`, by the number of its TCP stream. Wireshark
-- dissects a packet anew whenever it is shown, and in any order, so state changes only in the first
-- pass; what a packet's lines need later is kept in `packets`, by its place in the capture. Nothing
-- here may raise an error for any bytes: every range is checked before it is read. It is all in one
-- file, to be copied into a folder of plugins.

local wxsp = Proto("wxsp", "WXSP files and channels")

local HEADER_SIZE = 12
local SERVER_LIMIT = 131072 -- the largest packet that a server takes
local MAX_CHANNELS = 10
local MOST_TO_ASK_FOR = 0x08000000 -- somewhat larger numbers mean something else to Wireshark

wxsp.prefs.ports = Pref.range("TCP ports", "7580", "Ports taken for WXSP without a look", 65535)
wxsp.prefs.heuristic = Pref.bool("Other ports by their bytes", true,
    "Take a connection on any port whose packets look like WXSP")
wxsp.prefs.largest = Pref.uint("Largest packet", 1048576,
    "Bytes; a packet that claims more is not put together")

-- Codes. `from`: who sends it, C or S. `layout`: its fields in order, by the names of FIXED and
-- VARYING. `reply`: the code that answers it; `answers`: the code that it answers.

local NAMED = { "request_id", "name" }
local RESULT = { "request_id", "result" }
local CODES = {
    BROW = { from = "C", says = "open or keep a file connection", layout = {} },
    NAMC = { from = "C", says = "name the connection", layout = NAMED, reply = "NAMR" },
    NAMR = { from = "S", says = "named", layout = RESULT, answers = "NAMC" },
    CDIR = { from = "C", says = "create a directory", layout = NAMED, reply = "CDRT" },
    CDRT = { from = "S", says = "directory created", layout = RESULT, answers = "CDIR" },
    DELT = { from = "C", says = "delete a file", layout = NAMED, reply = "DTRT" },
    DTRT = { from = "S", says = "file deleted", layout = RESULT, answers = "DELT" },
    DFIL = { from = "C", says = "ask for a file", layout = { "request_id", "start_offset", "name" },
        reply = "DFRT" },
    DFRT = { from = "S", says = "file follows", answers = "DFIL",
        layout = { "request_id", "result", "size", "attributes", "mtime", "reserved" } },
    DFRB = { from = "S", says = "block of the file", layout = { "request_id", "data" } },
    UPFI = { from = "C", says = "announce a file", reply = "UPFR",
        layout = { "request_id", "size", "attributes", "mtime64", "start_offset", "name" } },
    UPFR = { from = "S", says = "file awaited", answers = "UPFI",
        layout = { "request_id", "result", "start_offset" } },
    UPFB = { from = "C", says = "block of the file", reply = "UPBR",
        layout = { "request_id", "last_block", "data" } },
    UPBR = { from = "S", says = "block written", layout = RESULT, answers = "UPFB" },
    CAOP = { from = "C", says = "cancel a request", layout = { "request_id" } },
    KEEP = { from = "C", says = "keep a channel connection", layout = {} },
    OCHS = { from = "C", says = "open channels", layout = { "num_channels", "channels" } },
    CPKT = { from = "S", says = "channel packet", layout = { "channel", "data" } },
}

local LETTERS, MAGICS = {}, {}
for letters, code in pairs(CODES) do
    local a, b, c, d = letters:byte(1, 4)
    local magic = ((a * 256 + b) * 256 + c) * 256 + d
    LETTERS[magic] = letters
    MAGICS[magic] = letters .. ": " .. code.says
end

local RESULTS = {
    [0] = "success",
    [4] = "no memory for the connection's name",
    [5] = "the file does not exist or cannot be examined",
    [6] = "the file cannot be opened or positioned",
    [7] = "the offset lies beyond the end of the file",
    [8] = "the directory cannot be created or made writable",
    [11] = "fewer bytes written than the block carried",
    [0xFFFFFFFF] = "the file system refused to delete",
}

local function ResultText(result)
    return RESULTS[result] or "unknown"
end

-- Fields.

local U32, U64 = ProtoField.uint32, ProtoField.uint64
local f = {
    version = U32("wxsp.version", "Version", base.HEX),
    magic = U32("wxsp.magic", "Code", base.HEX, MAGICS),
    data_size = U32("wxsp.data_size", "Size of the payload", base.DEC),
    request_id = U32("wxsp.request_id", "Request id", base.DEC),
    result = U32("wxsp.result", "Result", base.DEC, RESULTS),
    name = ProtoField.string("wxsp.name", "Name"),
    size = U64("wxsp.size", "Size of the file", base.DEC),
    size_high = U32("wxsp.size_high", "High half", base.DEC),
    size_low = U32("wxsp.size_low", "Low half", base.DEC),
    attributes = U32("wxsp.attributes", "Attributes", base.HEX),
    mtime = ProtoField.absolute_time("wxsp.mtime", "Modified", base.UTC),
    mtime_high = U32("wxsp.mtime_high", "Modified, high half of the seconds", base.DEC),
    reserved = U32("wxsp.reserved", "Reserved", base.DEC),
    start_offset = U64("wxsp.start_offset", "Start offset", base.DEC),
    last_block = U32("wxsp.last_block", "Last block", base.DEC),
    num_channels = U32("wxsp.num_channels", "Number of channels", base.DEC),
    channel = U32("wxsp.channel", "Channel", base.DEC),
    data = ProtoField.bytes("wxsp.data", "Data"),
    data_length = U32("wxsp.data_length", "Length of the data", base.DEC),
    request_in = ProtoField.framenum("wxsp.request_in", "Request in", base.NONE, frametype.REQUEST),
    reply_in = ProtoField.framenum("wxsp.reply_in", "Reply in", base.NONE, frametype.RESPONSE),
    time = ProtoField.relative_time("wxsp.time", "Time since the request"),
    file = ProtoField.string("wxsp.file", "File"),
    file_offset = U64("wxsp.file_offset", "Offset of this block", base.DEC),
    file_done = U64("wxsp.file_done", "So far", base.DEC),
    file_total = U64("wxsp.file_total", "Of", base.DEC),
    packet_number = U32("wxsp.packet_number", "Packet of this channel", base.DEC),
}

local function Expert(name, text, group, severity)
    return ProtoExpert.new("wxsp." .. name, text, group, severity)
end

local e = {
    unknown_code = Expert("unknown_code", "No such code", expert.group.PROTOCOL,
        expert.severity.ERROR),
    no_packet = Expert("no_packet", "These bytes begin no packet", expert.group.MALFORMED,
        expert.severity.WARN),
    bad_length = Expert("bad_length", "The length does not fit the record", expert.group.MALFORMED,
        expert.severity.ERROR),
    too_large = Expert("too_large", "Larger than the receiver takes", expert.group.PROTOCOL,
        expert.severity.WARN),
    bad_name = Expert("bad_name", "The name has no end inside its packet", expert.group.MALFORMED,
        expert.severity.ERROR),
    wrong_side = Expert("wrong_side", "The other side sends this code", expert.group.PROTOCOL,
        expert.severity.WARN),
    refused = Expert("refused", "Refused", expert.group.RESPONSE_CODE, expert.severity.NOTE),
    no_request = Expert("no_request", "No request with this id awaits it", expert.group.SEQUENCE,
        expert.severity.NOTE),
    transfer = Expert("transfer", "Transfer", expert.group.SEQUENCE, expert.severity.CHAT),
    cut_short = Expert("cut_short", "The capture does not hold the whole packet",
        expert.group.UNDECODED, expert.severity.NOTE),
}

local function Listed(map)
    local list = {}
    for _, value in pairs(map) do
        list[#list + 1] = value
    end
    return list
end
wxsp.fields = Listed(f)
wxsp.experts = Listed(e)

local tcp_stream = Field.new("tcp.stream")
local tcp_length = Field.new("tcp.len")

-- State of the capture.

local connections, packets = {}, {}

function wxsp.init()
    connections, packets = {}, {}
end

local function Connection(pinfo)
    local stream = tcp_stream()
    local key = stream and stream.value or "none"
    if connections[key] == nil then
        connections[key] = { open = {}, transfers = {}, counts = {} }
    end
    return connections[key]
end

-- Fields of a payload. Each reader gets the bytes of its field and returns a number where one is
-- needed to follow the conversation.

local function ReadU32(name)
    return function(tree, range)
        tree:add_le(f[name], range)
        return range:le_uint()
    end
end

local function ReadOffset(tree, range)
    local item = tree:add_le(f.start_offset, range)
    local low, high = range(0, 4):le_uint(), range(4, 4):le_uint()
    if low == 0xFFFFFFFF and high == 0xFFFFFFFF then
        item:append_text(" (continue an existing file)")
        return nil
    end
    return high * 4294967296 + low
end

-- Two words, the high one first.
local function ReadSize(tree, range)
    local high, low = range(0, 4):le_uint(), range(4, 4):le_uint()
    local item = tree:add(f.size, range, UInt64(low, high))
    item:add_le(f.size_high, range(0, 4))
    item:add_le(f.size_low, range(4, 4))
    return high * 4294967296 + low
end

local function ReadTime(tree, range)
    tree:add(f.mtime, range(0, 4), NSTime.new(range(0, 4):le_uint()))
end

local function ReadTime64(tree, range)
    ReadTime(tree, range)
    tree:add_le(f.mtime_high, range(4, 4))
end

local FIXED = {
    request_id = { 4, ReadU32("request_id") },
    result = { 4, ReadU32("result") },
    size = { 8, ReadSize },
    attributes = { 4, ReadU32("attributes") },
    mtime = { 4, ReadTime },
    mtime64 = { 8, ReadTime64 },
    reserved = { 4, ReadU32("reserved") },
    start_offset = { 8, ReadOffset },
    last_block = { 4, ReadU32("last_block") },
    num_channels = { 4, ReadU32("num_channels") },
    channel = { 4, ReadU32("channel") },
}

-- Readers of what has no fixed width: they get all that is left, and return how much they took.

local function ReadName(tree, range, values)
    for at = 0, range:len() - 2, 2 do
        if range(at, 2):le_uint() == 0 then
            values.name = at > 0 and range(0, at):le_ustring() or ""
            tree:add(f.name, range(0, at + 2), values.name)
            return at + 2
        end
    end
    tree:add_proto_expert_info(e.bad_name)
    return range:len()
end

local function ReadData(tree, range, values)
    values.data_length = range:len()
    tree:add(f.data, range)
    tree:add(f.data_length, range:len()):set_generated()
    return range:len()
end

local function ReadChannels(tree, range, values)
    local count = values.num_channels
    if count > MAX_CHANNELS then
        tree:add_proto_expert_info(e.bad_length, "More channels than a server takes")
    elseif range:len() < count * 4 then
        tree:add_proto_expert_info(e.bad_length, "Fewer channels than announced")
    end
    local used = math.min(count, MAX_CHANNELS, math.floor(range:len() / 4))
    values.channels = {}
    for i = 0, used - 1 do
        tree:add_le(f.channel, range(i * 4, 4))
        values.channels[i + 1] = range(i * 4, 4):le_uint()
    end
    return used * 4
end

-- The same where nothing is left.
local EMPTY = {
    name = function(tree)
        tree:add_proto_expert_info(e.bad_name)
    end,
    data = function(tree, values)
        values.data_length = 0
        tree:add(f.data_length, 0):set_generated()
    end,
    channels = function(tree, values)
        values.channels = {}
        if values.num_channels > 0 then
            tree:add_proto_expert_info(e.bad_length, "Fewer channels than announced")
        end
    end,
}

local VARYING = { name = ReadName, data = ReadData, channels = ReadChannels }

-- Reads a payload by its layout; returns what it holds. `payload` may be nil: nothing is there.
local function Walk(tree, payload, layout)
    local values, at = {}, 0
    local size = payload and payload:len() or 0
    for _, name in ipairs(layout) do
        local width, read = 0, nil
        if FIXED[name] then
            width, read = FIXED[name][1], FIXED[name][2]
            if size - at < width then
                tree:add_proto_expert_info(e.bad_length, "The record ends before its " .. name)
                values.short = true
                return values
            end
            values[name] = read(tree, payload(at, width))
        elseif size > at then
            width = VARYING[name](tree, payload(at, size - at), values)
        else
            EMPTY[name](tree, values)
        end
        at = at + width
    end
    if size > at then
        tree:add_proto_expert_info(e.bad_length, (size - at) .. " bytes behind the record")
    end
    return values
end

-- Following a conversation, in the first pass. `info` is what is shown of a packet then and later.

local function Ask(connection, reply, id, info)
    local key = reply .. id
    connection.open[key] = connection.open[key] or {}
    table.insert(connection.open[key], info)
end

local function Answer(connection, letters, id, info)
    local waiting = connection.open[letters .. id]
    local request = waiting and table.remove(waiting, 1)
    if request == nil then
        info.orphan = true
        return
    end
    request.reply_in, info.request_in = info.frame, request.frame
    info.time = info.when - request.when
end

local function Block(info, transfer, length)
    info.file, info.total, info.offset = transfer.name, transfer.total, transfer.offset
    transfer.offset = transfer.offset + length
    info.done = transfer.offset
end

local FOLLOW = {}

function FOLLOW.UPFI(connection, values)
    connection.transfers[values.request_id] =
        { name = values.name, total = values.size, offset = values.start_offset or 0 }
end

function FOLLOW.UPFR(connection, values, info)
    local transfer = connection.transfers[values.request_id]
    if transfer and values.result == 0 then
        transfer.offset = values.start_offset or transfer.offset
        info.file, info.total = transfer.name, transfer.total
    end
end

function FOLLOW.UPFB(connection, values, info)
    local transfer = connection.transfers[values.request_id]
    if transfer then
        Block(info, transfer, values.data_length)
        if values.last_block ~= 0 or values.data_length == 0 then
            info.ends = info.done == info.total and "The upload is complete"
                or "The upload ends at another size than announced"
            connection.transfers[values.request_id] = nil
        end
    end
end

function FOLLOW.DFIL(connection, values, info)
    connection.transfers[values.request_id] = { name = values.name, offset = 0, frame = info.frame }
end

function FOLLOW.DFRT(connection, values, info)
    local transfer = connection.transfers[values.request_id]
    if transfer then
        transfer.total = values.size
        info.file, info.total = transfer.name, transfer.total
    end
end

function FOLLOW.DFRB(connection, values, info)
    local transfer = connection.transfers[values.request_id]
    if transfer == nil then
        info.orphan = true
        return
    end
    Block(info, transfer, values.data_length)
    info.request_in = transfer.frame
    if values.data_length == 0 then
        info.ends = info.done == info.total and "The download is complete"
            or "The download ends at another size than announced"
        connection.transfers[values.request_id] = nil
    end
end

function FOLLOW.CAOP(connection, values, info)
    local transfer = connection.transfers[values.request_id]
    if transfer then
        info.file, info.total, info.done = transfer.name, transfer.total, transfer.offset
        info.ends = "The transfer is cancelled"
        connection.transfers[values.request_id] = nil
    end
end

function FOLLOW.OCHS(connection, _, info)
    connection.opened_in, connection.counts = info.frame, {}
end

function FOLLOW.CPKT(connection, values, info)
    local count = (connection.counts[values.channel] or 0) + 1
    connection.counts[values.channel] = count
    info.packet_number, info.request_in = count, connection.opened_in
end

local function Follow(connection, letters, code, values, info, pinfo)
    if values.short then
        return
    end
    local client = code.from == "C" and pinfo.src_port or pinfo.dst_port
    connection.client = connection.client or client
    info.wrong_side = connection.client ~= client
    if code.reply then
        Ask(connection, code.reply, values.request_id, info)
    elseif code.answers then
        Answer(connection, letters, values.request_id, info)
    end
    if FOLLOW[letters] then
        FOLLOW[letters](connection, values, info)
    end
end

-- What is known of a packet beyond its own bytes.

local function AddGenerated(tree, field, value)
    if value ~= nil then
        tree:add(field, value):set_generated()
    end
end

local function AddGenerated64(tree, field, value)
    if value ~= nil then
        local high = math.min(math.floor(value / 4294967296), 0xFFFFFFFF)
        AddGenerated(tree, field, UInt64(value % 4294967296, high))
    end
end

local function ShowInfo(tree, info)
    AddGenerated(tree, f.file, info.file)
    AddGenerated64(tree, f.file_offset, info.offset)
    AddGenerated64(tree, f.file_done, info.done)
    AddGenerated64(tree, f.file_total, info.total)
    AddGenerated(tree, f.packet_number, info.packet_number)
    AddGenerated(tree, f.request_in, info.request_in)
    AddGenerated(tree, f.reply_in, info.reply_in)
    if info.time then
        local seconds = math.floor(info.time)
        local rest = math.floor((info.time - seconds) * 1e9 + 0.5)
        AddGenerated(tree, f.time, NSTime.new(seconds, math.min(rest, 999999999)))
    end
    if info.wrong_side then
        tree:add_proto_expert_info(e.wrong_side)
    end
    if info.orphan then
        tree:add_proto_expert_info(e.no_request)
    end
    if info.ends then
        tree:add_proto_expert_info(e.transfer, info.ends)
    end
end

-- The packet in a few words: "UPFB 2 a/b.txt 65536 of 70000".
local function Summary(letters, values, info)
    local words = { letters }
    words[#words + 1] = values.request_id
    words[#words + 1] = values.channel and ("channel " .. values.channel) or nil
    words[#words + 1] = info.packet_number and ("packet " .. info.packet_number) or nil
    words[#words + 1] = values.channels and table.concat(values.channels, ",") or nil
    words[#words + 1] = values.name or info.file
    words[#words + 1] = info.done and string.format("%.0f", info.done) or nil
    words[#words + 1] = info.done and info.total and string.format("of %.0f", info.total) or nil
    if (values.result or 0) ~= 0 then
        words[#words + 1] = "result " .. values.result .. ": " .. ResultText(values.result)
    end
    return table.concat(words, " ")
end

-- One packet.

local function ShowHeader(tree, range, letters)
    tree:add_le(f.version, range(0, 4))
    local item = tree:add_le(f.magic, range(4, 4))
    tree:add_le(f.data_size, range(8, 4))
    if letters == nil then
        item:add_proto_expert_info(e.unknown_code)
    end
end

local function PacketInfo(key, pinfo)
    local info = packets[key]
    if info == nil then
        info = { frame = pinfo.number, when = pinfo.rel_ts }
        packets[key] = info
        return info, true
    end
    return info, false
end

-- `range` holds the packet, or as much of it as was captured.
local function DissectPacket(range, total, key, pinfo, root)
    local letters = LETTERS[range(4, 4):le_uint()]
    local tree = root:add(wxsp, range)
    ShowHeader(tree, range, letters)
    if total > SERVER_LIMIT and (letters == nil or CODES[letters].from == "C") then
        tree:add_proto_expert_info(e.too_large)
    end
    if letters == nil then
        tree:append_text(", unknown code")
        return "unknown code"
    end
    local code = CODES[letters]
    local size = range:len() - HEADER_SIZE
    local payload = size > 0 and range(HEADER_SIZE, size) or nil
    if range:len() < total then
        tree:add_proto_expert_info(e.cut_short)
    end
    local values = Walk(tree, payload, code.layout)
    local info, first = PacketInfo(key, pinfo)
    if first then
        Follow(Connection(pinfo), letters, code, values, info, pinfo)
    end
    ShowInfo(tree, info)
    if (values.result or 0) ~= 0 then
        tree:add_proto_expert_info(e.refused, "Refused: " .. ResultText(values.result))
    end
    local summary = Summary(letters, values, info)
    tree:append_text(", " .. summary)
    return summary
end

-- Cutting.

local function Largest()
    return math.min(wxsp.prefs.largest, MOST_TO_ASK_FOR)
end

-- A header that a packet may begin with: a known code, or letters, or 0 with the version.
local function IsHeader(range)
    local magic = range(4, 4):le_uint()
    if LETTERS[magic] then
        return true
    end
    if range(8, 4):le_uint() > Largest() then
        return false
    end
    if magic == 0 then
        return range(0, 4):le_uint() == 0x00010000
    end
    for at = 4, 7 do
        local letter = range(at, 1):uint()
        if letter < 0x30 or letter > 0x7A then
            return false
        end
    end
    return true
end

local function ShowRest(range, root, fault, text)
    local tree = root:add(wxsp, range)
    tree:append_text(", " .. text)
    tree:add(f.data, range)
    tree:add_proto_expert_info(fault, text)
    return text
end

-- Asks for what is missing of the packet that begins at `at`; false where the capture lacks it.
local function AskForMore(tvb, at, pinfo, missing)
    if pinfo.can_desegment == 0 or tvb:len() < tvb:reported_len() then
        return false
    end
    pinfo.desegment_offset = at
    pinfo.desegment_len = missing or DESEGMENT_ONE_MORE_SEGMENT
    return true
end

-- Cuts one packet off, and shows it. Returns where the next one begins, and its summary; nothing
-- when more has to come first.
local function Cut(tvb, at, pinfo, root)
    local left = tvb:len() - at
    local range = tvb(at, left)
    if left < HEADER_SIZE then
        if AskForMore(tvb, at, pinfo) then
            return nil
        end
        return tvb:len(), ShowRest(range, root, e.cut_short, "Part of a header")
    end
    if not IsHeader(range) then
        return tvb:len(), ShowRest(range, root, e.no_packet, "These bytes begin no packet")
    end
    local total = HEADER_SIZE + range(8, 4):le_uint()
    if total - HEADER_SIZE > Largest() then
        return tvb:len(), ShowRest(range, root, e.too_large, "A packet of " .. total .. " bytes")
    end
    if left < total and AskForMore(tvb, at, pinfo, total - left) then
        return nil
    end
    local taken = math.min(left, total)
    local key = pinfo.number .. "/" .. tvb:offset() .. "/" .. tvb:len() .. "/" .. at
    return at + taken, DissectPacket(tvb(at, taken), total, key, pinfo, root)
end

-- True for what a segment holds behind the end of a packet that began in earlier ones: that packet
-- was shown in a call of its own just before.
local function IsBehindAnother(tvb)
    local length = tcp_length()
    return tvb:offset() > 0 and length ~= nil and tvb:len() < length.value
end

function wxsp.dissector(tvb, pinfo, root)
    local summaries = {}
    local at, summary = 0, nil
    pinfo.cols.protocol = "WXSP"
    while at ~= nil and at < tvb:len() do
        at, summary = Cut(tvb, at, pinfo, root)
        summaries[#summaries + 1] = summary
    end
    if #summaries > 0 then
        pinfo.cols.info:clear()
        local before = IsBehindAnother(tvb) and "; " or ""
        pinfo.cols.info:append(before .. table.concat(summaries, "; "))
        pinfo.cols.info:fence()
    end
    return tvb:len()
end

-- Which connections are WXSP.

local function LooksLikeWXSP(tvb, pinfo, root)
    if not wxsp.prefs.heuristic or tvb:len() < HEADER_SIZE then
        return false
    end
    local version = tvb(0, 4):le_uint()
    local letters = LETTERS[tvb(4, 4):le_uint()]
    local size = tvb(8, 4):le_uint()
    if letters == nil or size > Largest() then
        return false
    end
    -- Replies may have any version.
    if version ~= 0x00010000 and not CODES[letters].answers then
        return false
    end
    if #CODES[letters].layout == 0 and size > 0 then
        return false
    end
    pinfo.conversation = wxsp
    wxsp.dissector(tvb, pinfo, root)
    return true
end

wxsp:register_heuristic("tcp", LooksLikeWXSP)

local tcp_ports = DissectorTable.get("tcp.port")
local ports = nil

function wxsp.prefs_changed()
    if ports ~= wxsp.prefs.ports then
        if ports then
            tcp_ports:remove(ports, wxsp)
        end
        ports = wxsp.prefs.ports
        tcp_ports:add(ports, wxsp)
    end
end

ports = wxsp.prefs.ports
tcp_ports:add(ports, wxsp)
