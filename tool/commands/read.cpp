#include "tool/commands/command.h"

#include "authchipdriver/registermap.h"
#include "common/hex.h"
#include "tool/chip/chip.h"
#include "tool/commands/arguments.h"
#include "tool/commands/values.h"
#include "tool/report/failure.h"
#include "tool/report/report.h"

namespace VorelKestrel::Tool {
namespace {

const ACD::Register* findRegister(int number)
{
    for (const auto& reg : ACD::kRegisterMap) {
        if (reg.number == number)
            return &reg;
    }
    return nullptr;
}

void listRegisters(RawChip& chip, const CommandContext& context)
{
    Report report;
    auto rows = nlohmann::ordered_json::array();
    for (const auto& reg : ACD::kRegisterMap) {
        if (reg.width == 0)
            continue;
        const std::string data = toHex(chip.read(reg.number, reg.width));
        report.text(toHex(reg.number, 2) + "  " + reg.name, data);
        rows.push_back({{"register", reg.number}, {"name", reg.name}, {"data", data}});
    }
    report.json("registers", rows);
    context.print(report);
}

class Read : public Command
{
public:
    void declare(Arguments& arguments) override
    {
        arguments.add("REGISTER", m_regText, "The register's number, 0 to 0xff");
        arguments.add("LENGTH", m_lengthText, "How many bytes (the register's own length)");
    }

    void interpret() override
    {
        if (!m_regText.empty())
            m_reg = parseRegister(m_regText);
        if (!m_lengthText.empty())
            m_length = parseLength(m_lengthText);
    }

    ExitStatus run(const CommandContext& context) override
    {
        if (!m_reg) {
            listRegisters(*context.chips->open(), context);
            return ExitStatus::Success;
        }
        const int length = lengthToRead();
        const Bytes data = context.chips->open()->read(static_cast<std::uint8_t>(*m_reg), length);
        Report report;
        report.json("register", *m_reg).hexRow("", "data", data);
        context.print(report);
        return ExitStatus::Success;
    }

private:
    int lengthToRead() const
    {
        if (m_length)
            return *m_length;
        const auto* reg = findRegister(*m_reg);
        if (reg != nullptr && reg->width > 0)
            return reg->width;
        throw Failure(kWrongUsage, "read register " + toHex(static_cast<std::uint32_t>(*m_reg), 2),
                      "Its length is unknown", "Give the number of bytes after the register.");
    }

    std::string m_regText;
    std::string m_lengthText;
    std::optional<int> m_reg;    // none: list the registers
    std::optional<int> m_length; // none: the register's own
};

} // namespace

std::unique_ptr<Command> makeRead()
{
    return std::make_unique<Read>();
}

} // namespace VorelKestrel::Tool
