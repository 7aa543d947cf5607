-- Wireshark dissector for Dockhand's service link (docs/protocol.md). It dissects each frame by
-- itself: no reassembly, and no link between answer and command. Install: copy it to the folder of
-- personal Lua plugins (Help, About Wireshark, Folders).

local dockhand = Proto("dockhand", "Dockhand Service Link")

local NODES = { [14] = "Dockhand, second destination", [24] = "Shipwright", [26] = "Dockhand" }
local ADDRESSES = { [14] = "Node 14", [24] = "Shipwright", [26] = "Dockhand" }
local PROTOCOLS = { [3] = "P3 commands", [5] = "P5 configuration files", [6] = "P6 files" }
local OPERATIONS = {
  [0] = "Start Configuration", [1] = "Set Date Time", [2] = "Set Serial",
  [3] = "Set Serial Ext", [4] = "End Configuration",
}
local TYPES = {
  [0] = "Transfer Info", [1] = "Initiate Transfer", [2] = "Record Start",
  [3] = "Record End", [4] = "Transfer Complete", [15] = "Data Frame",
}
local CODES = {
  [0] = "success", [29] = "Transfer Info rejected", [30] = "Initiate Transfer rejected",
  [186] = "failure",
}
local FILE_TYPES = { [0] = "configuration", [1] = "menu", [2] = "generic", [3] = "package" }
local VERDICTS = { [0] = "CRC-32 matches", [1] = "CRC-32 differs" }

local f = dockhand.fields
f.protocol = ProtoField.uint8("dockhand.protocol", "Protocol type", base.DEC, PROTOCOLS)
f.source = ProtoField.uint8("dockhand.source", "Source node", base.DEC, NODES)
f.destination = ProtoField.uint8("dockhand.destination", "Destination node", base.DEC, NODES)
f.code = ProtoField.uint16("dockhand.code", "Result code", base.DEC, CODES)

f.p3_response = ProtoField.bool("dockhand.p3.response", "Response")
f.p3_slot = ProtoField.uint8("dockhand.p3.slot", "Slot")
f.p3_interface = ProtoField.uint8("dockhand.p3.interface", "Interface")
f.p3_operation = ProtoField.uint8("dockhand.p3.operation", "Operation")
f.p3_event = ProtoField.uint16("dockhand.p3.event", "Event number")
f.p3_handshake = ProtoField.bytes("dockhand.p3.handshake", "Handshake", base.SPACE)
f.p3_time = ProtoField.string("dockhand.p3.time", "Date and time, UTC")
f.p3_serial_length = ProtoField.uint8("dockhand.p3.serial_length", "Length of the serial number")
f.p3_serial = ProtoField.string("dockhand.p3.serial", "Serial number, this part", base.UNICODE)
f.p3_payload = ProtoField.bytes("dockhand.p3.payload", "Payload", base.SPACE)

f.p6_type = ProtoField.uint8("dockhand.p6.type", "Message type", base.DEC, TYPES)
f.p6_cmdresp = ProtoField.uint8("dockhand.p6.cmdresp", "Command/response bit")
f.p6_frame_number = ProtoField.uint8("dockhand.p6.frame_number", "Frame number")
f.p6_file_type = ProtoField.uint8("dockhand.p6.file_type", "File type", base.DEC, FILE_TYPES)
f.p6_version = ProtoField.uint8("dockhand.p6.version", "Protocol version", base.DEC, nil, 0xfc)
f.p6_file_size = ProtoField.uint32("dockhand.p6.file_size", "File size in bytes")
f.p6_records = ProtoField.uint32("dockhand.p6.records", "Number of records")
f.p6_record_frames = ProtoField.uint8("dockhand.p6.record_frames", "Data frames in the record")
f.p6_record_number = ProtoField.uint32("dockhand.p6.record_number", "Number of the record")
f.p6_crc32 = ProtoField.uint32("dockhand.p6.crc32", "CRC-32", base.HEX)
f.p6_flag = ProtoField.uint8("dockhand.p6.flag", "Flag", base.DEC, nil, 0x02)
f.p6_frame_limit = ProtoField.uint16("dockhand.p6.frame_limit", "Frame limit")
f.p6_param1 = ProtoField.uint16("dockhand.p6.param1", "Parameter 1")
f.p6_param2 = ProtoField.uint16("dockhand.p6.param2", "Parameter 2")
f.p6_param3 = ProtoField.uint16("dockhand.p6.param3", "Parameter 3")
f.p6_verdict = ProtoField.uint8("dockhand.p6.verdict", "Verdict", base.DEC, VERDICTS)
f.p6_data = ProtoField.bytes("dockhand.p6.data", "Bytes of the file", base.SPACE)
f.p6_payload = ProtoField.bytes("dockhand.p6.payload", "Payload", base.SPACE)

local e_size = ProtoExpert.new("dockhand.size", "Payload of wrong size", expert.group.MALFORMED,
  expert.severity.WARN)
local e_version = ProtoExpert.new("dockhand.version_unknown", "Protocol version is not 2",
  expert.group.PROTOCOL, expert.severity.WARN)
local e_code = ProtoExpert.new("dockhand.failure", "The receiver reports a failure",
  expert.group.RESPONSE_CODE, expert.severity.NOTE)
dockhand.experts = { e_size, e_version, e_code }

local can_id = Field.new("can.id")
local can_extended = Field.new("can.flags.xtd")

local function bits(id, shift, width)
  return bit.band(bit.rshift(id, shift), bit.lshift(1, width) - 1)
end

local function size_is(tvb, tree, size, or_more)
  if tvb:len() == size or (or_more and tvb:len() > size) then
    return true
  end
  tree:add_proto_expert_info(e_size)
  return false
end

local function add_version(tvb, tree, offset)
  tree:add_le(f.p6_version, tvb(offset, 1))
  if bit.rshift(tvb(offset, 1):uint(), 2) ~= 2 then
    tree:add_proto_expert_info(e_version)
  end
end

local function add_code(tree, id)
  local code = bits(id, 0, 10)
  tree:add(f.code, code):set_generated()
  if code ~= 0 then
    tree:add_proto_expert_info(e_code)
  end
  return string.format("code %d (%s)", code, CODES[code] or "unknown")
end

-- P3, by operation: fill the tree and return the text after the name in the Info column.
local commands = {
  [0] = function(tvb, tree)
    if size_is(tvb, tree, 2, true) then
      tree:add(f.p3_handshake, tvb(0, 2))
    end
  end,
  [1] = function(tvb, tree)
    if not size_is(tvb, tree, 6) then
      return
    end
    local text = string.format("%04d-%02d-%02d %02d:%02d:%02d", 2000 + tvb(0, 1):uint(),
      tvb(1, 1):uint(), tvb(2, 1):uint(), tvb(3, 1):uint(), tvb(4, 1):uint(), tvb(5, 1):uint())
    tree:add(f.p3_time, tvb(), text)
    return text
  end,
  [2] = function(tvb, tree)
    if not size_is(tvb, tree, 1, true) then
      return
    end
    local length = tvb(0, 1):uint()
    tree:add(f.p3_serial_length, tvb(0, 1))
    local here = math.min(length, 7)
    if size_is(tvb, tree, here + 1, true) and here > 0 then
      tree:add(f.p3_serial, tvb(1, here), tvb(1, here):string(ENC_UTF_8))
      return tvb(1, here):string(ENC_UTF_8)
    end
  end,
  [3] = function(tvb, tree)
    if tvb:len() > 0 then
      tree:add(f.p3_serial, tvb(), tvb():string(ENC_UTF_8))
      return tvb():string(ENC_UTF_8)
    end
  end,
  [4] = function() end,
}

local function p3(tvb, tree, id)
  local is_response = bits(id, 14, 1) == 1
  tree:add(f.p3_response, is_response):set_generated()
  if is_response then
    tree:add(f.p3_slot, bits(id, 11, 2)):set_generated()
    local text = add_code(tree, id)
    if tvb:len() > 0 then
      tree:add(f.p3_payload, tvb())
    end
    return "P3 response", text
  end
  if bits(id, 21, 5) == 26 then
    tree:add(f.p3_event, bits(id, 0, 14)):set_generated()
    return "P3 event", tostring(bits(id, 0, 14))
  end
  local operation = bits(id, 0, 6)
  tree:add(f.p3_slot, bits(id, 11, 2)):set_generated()
  tree:add(f.p3_interface, bits(id, 6, 4)):set_generated()
  local item = tree:add(f.p3_operation, operation):set_generated()
  if bits(id, 6, 4) ~= 11 or not commands[operation] then
    if tvb:len() > 0 then
      tree:add(f.p3_payload, tvb())
    end
    return "P3 command", "operation " .. operation
  end
  item:append_text(" (" .. OPERATIONS[operation] .. ")")
  return "P3 " .. OPERATIONS[operation], commands[operation](tvb, tree)
end

local function crc32(tvb, tree)
  if size_is(tvb, tree, 4) then
    tree:add_le(f.p6_crc32, tvb(0, 4))
    return string.format("CRC-32 0x%08x", tvb(0, 4):le_uint())
  end
end

-- P6, by type: the same for messages and for their answers.
local messages = {
  [0] = function(tvb, tree)
    if size_is(tvb, tree, 6, true) then
      tree:add(f.p6_file_type, tvb(0, 1))
      add_version(tvb, tree, 1)
      tree:add_le(f.p6_file_size, tvb(2, 4))
      return string.format("%s, %d bytes", FILE_TYPES[tvb(0, 1):uint()] or "unknown",
        tvb(2, 4):le_uint())
    end
  end,
  [1] = function(tvb, tree)
    if size_is(tvb, tree, 8) then
      tree:add(f.p6_file_type, tvb(0, 1))
      add_version(tvb, tree, 1)
      tree:add_le(f.p6_records, tvb(4, 4))
      return string.format("%s, records: %d", FILE_TYPES[tvb(0, 1):uint()] or "unknown",
        tvb(4, 4):le_uint())
    end
  end,
  [2] = function(tvb, tree)
    if size_is(tvb, tree, 5) then
      tree:add(f.p6_record_frames, tvb(0, 1))
      tree:add_le(f.p6_record_number, tvb(1, 4))
      return string.format("record %d, frames: %d", tvb(1, 4):le_uint(), tvb(0, 1):uint())
    end
  end,
  [3] = crc32,
  [4] = crc32,
  [15] = function(tvb, tree, id)
    tree:add(f.p6_frame_number, bits(id, 4, 6)):set_generated()
    if tvb:len() > 0 then
      tree:add(f.p6_data, tvb())
    end
    return string.format("frame %d", bits(id, 4, 6))
  end,
}

local answers = {
  [0] = function(tvb, tree)
    if size_is(tvb, tree, 8) then
      add_version(tvb, tree, 0)
      tree:add(f.p6_flag, tvb(0, 1))
      local limit = bit.band(tvb(0, 1):uint(), 1) * 256 + tvb(1, 1):uint()
      tree:add(f.p6_frame_limit, tvb(0, 2), limit)
      tree:add_le(f.p6_param1, tvb(2, 2))
      tree:add_le(f.p6_param2, tvb(4, 2))
      tree:add_le(f.p6_param3, tvb(6, 2))
    end
  end,
  [1] = function(tvb, tree)
    size_is(tvb, tree, 8)
  end,
  [3] = function(tvb, tree)
    if size_is(tvb, tree, 1) then
      tree:add(f.p6_verdict, tvb(0, 1))
    end
  end,
  [4] = crc32,
}

local function p6(tvb, tree, id)
  local message_type = bits(id, 12, 4)
  tree:add(f.p6_type, message_type):set_generated()
  tree:add(f.p6_cmdresp, bits(id, 10, 1)):set_generated()
  local name = "P6 " .. (TYPES[message_type] or ("type " .. message_type))
  local text
  local handler = messages[message_type]
  if bits(id, 16, 5) == 24 then
    name = name .. " answer"
    text = add_code(tree, id)
    handler = answers[message_type]
  end
  if handler then
    local more = handler(tvb, tree, id)
    if text and more then
      text = text .. ", " .. more
    end
    text = text or more
  elseif tvb:len() > 0 then
    tree:add(f.p6_payload, tvb())
  end
  return name, text
end

local function is_ours(id)
  local source, destination = bits(id, 21, 5), bits(id, 16, 5)
  return PROTOCOLS[bits(id, 26, 3)] ~= nil
    and ((source == 24 and (destination == 26 or destination == 14))
      or (source == 26 and destination == 24))
end

function dockhand.dissector(tvb, pinfo, root)
  local id_field, extended = can_id(), can_extended()
  if not id_field or not extended or not extended.value or not is_ours(id_field.value) then
    return 0
  end
  local id = id_field.value
  local protocol = bits(id, 26, 3)
  local tree = root:add(dockhand, tvb())
  tree:add(f.protocol, protocol):set_generated()
  tree:add(f.source, bits(id, 21, 5)):set_generated()
  tree:add(f.destination, bits(id, 16, 5)):set_generated()

  local name, text = "P5 message", nil
  if protocol == 3 then
    name, text = p3(tvb, tree, id)
  elseif protocol == 6 then
    name, text = p6(tvb, tree, id)
  end
  local info = text and (name .. ": " .. text) or name
  tree:append_text(", " .. info)
  pinfo.cols.src = ADDRESSES[bits(id, 21, 5)]
  pinfo.cols.dst = ADDRESSES[bits(id, 16, 5)]
  pinfo.cols.protocol = "Dockhand"
  pinfo.cols.info = info
  return tvb:len()
end

dockhand:register_heuristic("can", function(tvb, pinfo, root)
  return dockhand.dissector(tvb, pinfo, root) > 0
end)
