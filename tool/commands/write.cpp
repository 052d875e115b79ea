#include "tool/commands/command.h"

#include "common/numbers.h"
#include "tool/chip/chip.h"
#include "tool/commands/arguments.h"
#include "tool/commands/values.h"
#include "tool/report/failure.h"
#include "tool/report/report.h"

namespace VorelKestrel::Tool {
namespace {

constexpr std::size_t kLongestMessage = 8192; // the kernel cuts longer ones

class Write : public Command
{
public:
    void declare(Arguments& arguments) override
    {
        arguments.add("REGISTER", m_regText, "The register's number, 0 to 0xff").required();
        arguments.add("HEX", m_dataText, "The bytes in hexadecimal; \"\" sends only the register number").required();
    }

    void interpret() override
    {
        m_reg = parseRegister(m_regText);
        m_data = parseBytes(m_dataText, "write to a register");
        if (m_data.size() >= kLongestMessage)
            throw Failure(kWrongUsage, "write " + inBytes(m_data.size()) + " to a register",
                          "i2c-dev takes messages of at most " + std::to_string(kLongestMessage) +
                              " bytes, including the register number",
                          "Give at most " + std::to_string(kLongestMessage - 1) + " bytes.");
    }

    ExitStatus run(const CommandContext& context) override
    {
        context.chips->open()->write(static_cast<std::uint8_t>(m_reg), m_data);
        Report report; // no text: silence means success
        report.json("register", m_reg).json("length", m_data.size());
        context.print(report);
        return ExitStatus::Success;
    }

private:
    std::string m_regText;
    std::string m_dataText;
    int m_reg = 0;
    Bytes m_data;
};

} // namespace

std::unique_ptr<Command> makeWrite()
{
    return std::make_unique<Write>();
}

} // namespace VorelKestrel::Tool
