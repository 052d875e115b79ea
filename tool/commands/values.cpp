#include "tool/commands/values.h"

#include <algorithm>
#include <cctype>
#include <sstream>

#include <unistd.h>

#include "common/filecontent.h"
#include "common/hex.h"
#include "common/numbers.h"
#include "tool/chip/chiplocation.h"
#include "tool/report/failure.h"

namespace VorelKestrel::Tool {
namespace {

constexpr std::uint32_t kEightBitMaximum = 0xff; // of an address
constexpr std::uint32_t kLargestRegister = 0xff;
constexpr std::uint32_t kLargestNumber = 0xffff;

Failure usageFailure(const std::string& tried, const std::string& answer, const std::string& next)
{
    return {kWrongUsage, tried, answer, next};
}

constexpr char kQuotes[] = "\"'";
constexpr char kSurroundings[] = " \t\r\n\"'"; // of a value; files and shells leave them there

std::string withoutSurroundings(const std::string& text)
{
    const auto begin = text.find_first_not_of(kSurroundings);
    const auto end = text.find_last_not_of(kSurroundings);
    return begin == std::string::npos ? "" : text.substr(begin, end - begin + 1);
}

std::string describeSurroundings(const std::string& text)
{
    if (!text.empty() && text.back() == '\r')
        return "It ends with a carriage return, as the lines of a file from Windows do";
    return text.find_first_of(kQuotes) != std::string::npos ? "It has quotes around it" : "It has blanks around it";
}

bool isBase64(const std::string& text)
{
    const auto padding = std::min(text.find('='), text.size());
    return text.size() - padding <= 2 && std::all_of(text.begin(), text.end(), [](unsigned char each) {
               return std::isalnum(each) != 0 || each == '+' || each == '/' || each == '=';
           });
}

/// The address in a text with something else around it, such as "2ah", "Ox2a" or "0x2a,": its first two hexadecimal
/// digits or more. Empty: that does not show.
std::string addressIn(const std::string& text)
{
    constexpr char kHexadecimalDigits[] = "0123456789abcdefABCDEF";
    for (auto begin = text.find_first_of(kHexadecimalDigits); begin != std::string::npos;) {
        const auto end = std::min(text.find_first_not_of(kHexadecimalDigits, begin), text.size());
        const auto address = parseNumber("0x" + text.substr(begin, end - begin), kEightBitMaximum);
        if (end - begin > 1 && address)
            return toHex(*address, 2);
        begin = text.find_first_of(kHexadecimalDigits, end);
    }
    return "";
}

Failure noNumber(const std::string& tried, const std::string& text)
{
    const std::string next = "Give the chip's 7-bit address, for example 0x2a.";
    if (text.find('/') == 0)
        return usageFailure(tried, "That is the path of a node, and no number", "--device names the node. " + next);
    const std::string address = addressIn(text);
    const bool isAscii =
        std::all_of(text.begin(), text.end(), [](char each) { return static_cast<unsigned char>(each) < 0x80; });
    const std::string found = "That is not a number";
    return usageFailure(tried, isAscii ? found : found + ": not all of its characters are ASCII",
                        address.empty() ? next : "If you mean " + address + ", write it so. " + next);
}

/// Why a text is no sequence of hexadecimal bytes, and what to write.
Failure notHexadecimal(const std::string& tried, const std::string& text)
{
    const std::string found = "'" + text + "' is not a sequence of hexadecimal bytes";
    if (text.rfind("0x", 0) == 0 || text.find(",0x") != std::string::npos)
        return usageFailure(tried, found + ": it has 0x", "Leave each 0x and comma out: two digits for each byte.");
    if (access(text.c_str(), F_OK) == 0)
        return usageFailure(tried, found + ", but the name of a file",
                            "Give the bytes in it: $(od -An -v -tx1 '" + text + "').");
    const auto wrong = text.find_first_not_of("0123456789abcdefABCDEF: \t\r\n");
    if (wrong == std::string::npos)
        return usageFailure(tried, found + ": a digit is missing",
                            "Give two digits for each byte, for example 00ff10.");
    constexpr std::size_t kDigitsOfAGroup = 4; // of base64
    if (text.size() % kDigitsOfAGroup == 0 && text.size() > kDigitsOfAGroup && isBase64(text))
        return usageFailure(tried, found + ", but may be base64",
                            "'echo TEXT | base64 -d | od -An -v -tx1' shows its bytes in hexadecimal.");
    return usageFailure(tried, found, "Give two digits for each byte, for example 00ff10.");
}

} // namespace

void requirePlainPath(const std::string& device)
{
    const std::string meant = withoutSurroundings(device);
    if (!meant.empty() && meant != device && access(device.c_str(), F_OK) != 0)
        throw usageFailure("use the node '" + device + "'", describeSurroundings(device), "Write " + meant + " only.");
}

int parseAddress(const std::string& text, int maximum)
{
    const std::string tried = "use the address '" + text + "'";
    const auto address = parseNumber(text, kLargestNumber);
    if (!address && parseNumber("0x" + text, kEightBitMaximum))
        throw usageFailure(tried, "Without 0x, a number is decimal", "Give the address as 0x" + text + ".");
    const std::string meant = withoutSurroundings(text);
    if (!address && parseNumber(meant, kLargestNumber))
        throw usageFailure(tried, describeSurroundings(text), "Write " + meant + " only.");
    if (!address)
        throw noNumber(tried, text);
    if (*address <= static_cast<std::uint32_t>(maximum))
        return static_cast<int>(*address);
    if (*address <= kEightBitMaximum)
        throw usageFailure(tried, "An I2C address has 7 bits; this one has 8, including the read/write bit",
                           "Leave that bit out: --address " + toHex(*address / 2, 2));
    throw usageFailure(tried, "An I2C address has 7 bits", "Give an address from 0x08 to 0x77.");
}

std::optional<int> addressInHexadecimal(const std::string& text)
{
    const auto decimal = parseNumber(text, kLargestNumber);
    const auto number = parseNumber("0x" + text, static_cast<std::uint32_t>(kHighestAddress)); // none for "0x54"
    if (!decimal || !number || *number < static_cast<std::uint32_t>(kLowestAddress) || *number == *decimal)
        return std::nullopt;
    return static_cast<int>(*number);
}

int parseBusTimeout(const std::string& text)
{
    const auto milliseconds = parseNumber(text, kLargestNumber);
    if (!milliseconds || *milliseconds == 0)
        throw usageFailure("set the timeout of the bus to '" + text + "'",
                           "A timeout is a number of milliseconds from 1 to 65535",
                           "Give a number, or omit --bus-timeout to keep the bus controller's own.");
    return static_cast<int>(*milliseconds);
}

int parseLockTimeout(const std::string& text)
{
    const auto seconds = parseNumber(text, kLargestNumber);
    if (!seconds)
        throw usageFailure("wait '" + text + "' seconds for the lock", "A time limit is a number from 0 to 65535",
                           "Give a number, or omit --lock-timeout to wait without limit.");
    return static_cast<int>(*seconds);
}

int parseWait(const std::string& text)
{
    const auto seconds = parseNumber(text, kLargestNumber);
    if (!seconds)
        throw usageFailure("wait '" + text + "' seconds for the chip", "A time is a number from 0 to 65535",
                           "Give a number of seconds.");
    return static_cast<int>(*seconds);
}

std::chrono::seconds parseSpan(const std::string& text)
{
    constexpr std::pair<char, int> kUnits[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}};
    const char last = text.empty() ? '\0' : text.back();
    for (const auto& [unit, seconds] : kUnits) {
        const auto number = last == unit ? parseNumber(text.substr(0, text.size() - 1), kLargestNumber) : std::nullopt;
        if (number && *number > 0)
            return std::chrono::seconds(static_cast<std::int64_t>(*number) * seconds);
    }
    throw usageFailure("repeat for '" + text + "'", "That is not a duration",
                       "Give a number and its unit: 90s, 30m, 8h or 2d.");
}

int parseRegister(const std::string& text)
{
    const auto reg = parseNumber(text, kLargestRegister);
    if (!reg)
        throw usageFailure("use the register '" + text + "'", "A register is a number from 0 to 0xff",
                           "'authchip read' without a register lists the known ones.");
    return static_cast<int>(*reg);
}

int parseLength(const std::string& text)
{
    const auto length = parseNumber(text, kLargestNumber);
    if (!length || *length == 0)
        throw usageFailure("read '" + text + "' bytes", "A length is a number from 1 to 65535",
                           "Give a number, or omit it for the register's own length.");
    return static_cast<int>(*length);
}

Bytes parseBytes(const std::string& text, const std::string& tried)
{
    const auto bytes = fromHex(text);
    if (!bytes)
        throw notHexadecimal(tried, text);
    return *bytes;
}

void requireProperties(const std::string& path)
{
    constexpr std::size_t kLongest = std::size_t{1} << 20U;
    const std::string tried = "configure the log from " + path;
    const FileContent content = readFile(path, kLongest);
    if (content.error != 0)
        throw usageFailure(tried, describeSystemError(content.error), "Name a file that this user can read.");
    if (content.isTooLong)
        throw usageFailure(tried, "It is longer than 1 MiB", "Name a log4cplus property file.");
    std::istringstream text(std::string(content.bytes.begin(), content.bytes.end()));
    std::string line;
    for (int number = 1; std::getline(text, line); ++number) {
        const auto begin = line.find_first_not_of(" \t\r");
        const bool isEmpty = begin == std::string::npos || line[begin] == '#' || line[begin] == '!';
        if (isEmpty || line.find('=') != std::string::npos || line.compare(begin, 7, "include") == 0)
            continue;
        throw usageFailure(tried, "Line " + std::to_string(number) + " is not a setting: '" + line + "'",
                           "Give lines such as log4cplus.rootLogger=WARN, STDERR.");
    }
}

} // namespace VorelKestrel::Tool
