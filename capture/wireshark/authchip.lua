-- Wireshark and tshark: names the registers of the authentication chip in captures of an I2C bus (link type 209), and
-- what is in them. Filters: authchip.register == 0x10, authchip.status.result == 7, authchip.page == 3, authchip.failure.

local registers = {
    [0x00] = "device version",
    [0x01] = "firmware version",
    [0x02] = "protocol major version",
    [0x03] = "protocol minor version",
    [0x04] = "device ID",
    [0x10] = "status",
    [0x11] = "signature length",
    [0x12] = "signature",
    [0x20] = "challenge length",
    [0x21] = "challenge",
    [0x30] = "certificate length",
}
local lastPage = 15
for page = 1, lastPage do
    registers[0x30 + page] = "certificate page " .. page
end
local kStart = "write start command"
local lengthRegisters = { [0x11] = true, [0x20] = true, [0x30] = true }
local results = { [0] = "nothing generated", [1] = "generated" }
local protocols = { [1] = "1.0", [2] = "2.0A", [3] = "2.0B", [5] = "2.0B", [7] = "3.0" }

local authchip = Proto("authchip", "Accessory authentication coprocessor")
local field = {
    register = ProtoField.uint8("authchip.register", "Register", base.HEX, registers),
    page = ProtoField.uint8("authchip.page", "Certificate page", base.DEC),
    status = ProtoField.uint8("authchip.status", "Status", base.HEX),
    result = ProtoField.uint8("authchip.status.result", "Result of the last command", base.DEC, results, 0x70),
    command = ProtoField.uint8("authchip.command", "Command", base.HEX, { [1] = "start" }),
    length = ProtoField.uint16("authchip.length", "Length", base.DEC),
    version = ProtoField.uint8("authchip.device_version", "Device version", base.DEC, protocols),
    id = ProtoField.uint32("authchip.device_id", "Device ID", base.HEX),
    data = ProtoField.bytes("authchip.data", "Data"),
    failure = ProtoField.string("authchip.failure", "Did not get through"),
    attempt = ProtoField.uint32("authchip.attempt", "Attempt", base.DEC),
}
authchip.fields = field
authchip.prefs.address = Pref.uint("Address", 0, "The chip's 7-bit address; 0 takes what is said to any")

local i2cAddress = Field.new("i2c.addr")
local i2cBus = Field.new("i2c.bus")
local frameComment = Field.new("frame.comment")

-- Which register a read is about was said in an earlier packet.
local named = {} -- by bus and address, while the file is read for the first time
local registerOf = {} -- by the number of the packet
function authchip.init()
    named = {}
    registerOf = {}
end

local function nameOf(register)
    return registers[register] or string.format("register 0x%02x", register)
end

local function inBytes(count)
    return count .. (count == 1 and " byte" or " bytes")
end

-- What the comment of a packet says that did not get through.
local function failureOf(comment)
    local text = comment and tostring(comment.value) or ""
    local attempt, register = text:match("attempt (%d+)"), text:match("register 0x(%x+)")
    local failed = attempt ~= nil or text:find("^short: ") ~= nil
    return failed and text or nil, tonumber(attempt), register and tonumber(register, 16)
end

local function addRead(tree, register, data)
    if register == 0x10 and data:len() == 1 then
        tree:add(field.status, data):add(field.result, data)
        local result = bit.rshift(bit.band(data:uint(), 0x70), 4)
        return ": " .. (results[result] or "not generated, result " .. result)
    elseif register == 0x00 and data:len() == 1 then
        tree:add(field.version, data)
        return ": " .. data:uint() .. ", " .. (protocols[data:uint()] and "protocol " .. protocols[data:uint()] or "unknown")
    elseif register == 0x04 and data:len() == 4 then
        tree:add(field.id, data)
        return string.format(": 0x%08x", data:uint())
    end
end

local function addData(tree, register, data, isRead)
    if lengthRegisters[register] and data:len() == 2 then
        tree:add(field.length, data)
        return ": " .. data:uint()
    elseif isRead then
        local text = addRead(tree, register, data)
        if text then
            return text
        end
    elseif register == 0x10 and data:len() == 1 then
        tree:add(field.command, data)
        return data:uint() == 1 and kStart or string.format(", command 0x%02x", data:uint())
    end
    tree:add(field.data, data)
end

local function describe(tree, tvb, register, isRead, failure)
    local first = isRead and 1 or 2 -- of the data, behind address and register
    local count = math.max(0, tvb:reported_len() - first)
    local captured = math.max(0, tvb:len() - first)
    tree:add(field.register, register)
    if register > 0x30 and register <= 0x30 + lastPage then
        tree:add(field.page, register - 0x30)
    end
    local text
    if captured > 0 and captured == count then
        text = addData(tree, register, tvb(first, captured), isRead)
    end
    if not isRead and count == 0 then
        return (failure and "" or "name ") .. nameOf(register) -- which bytes were refused, the packet does not tell
    end
    if text == kStart then
        return kStart
    end
    return (isRead and "read " or "write ") .. nameOf(register) .. (text or count > 0 and ", " .. inBytes(count) or "")
end

function authchip.dissector(tvb, pinfo, tree)
    local comment = frameComment()
    if not i2cAddress() or tvb:len() < 1 then
        if i2cBus() and comment and tostring(comment.value):find("^select address ") then
            pinfo.cols.info = tostring(comment.value)
        end
        return
    end
    local sevenBits = bit.rshift(tvb(0, 1):uint(), 1)
    if authchip.prefs.address ~= 0 and authchip.prefs.address ~= sevenBits then
        return
    end
    local isRead = bit.band(tvb(0, 1):uint(), 1) == 1
    local failure, attempt, register = failureOf(comment)
    local chip = tostring(i2cBus()) .. "/" .. sevenBits
    if not pinfo.visited then
        if not isRead and tvb:len() > 1 then
            register = tvb(1, 1):uint()
            named[chip] = register
        end
        registerOf[pinfo.number] = register or (isRead and named[chip]) or nil
    end
    register = registerOf[pinfo.number]
    if not register then
        return
    end
    local subtree = tree:add(authchip, tvb())
    local text = describe(subtree, tvb, register, isRead, failure)
    if failure then
        subtree:add(field.failure, failure)
        text = text .. ": " .. failure:gsub(", register.*", "")
        if attempt then
            subtree:add(field.attempt, attempt)
        end
    end
    pinfo.cols.protocol = "AUTHCHIP"
    pinfo.cols.info = text
end

register_postdissector(authchip)
