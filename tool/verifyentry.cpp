// The door of libauthchip-verify.so.

#include <map>

#include "tool/modules.h"

namespace VorelKestrel::Tool {

// Each is in the file of its name.
std::unique_ptr<Command> makeAuthenticate();
std::unique_ptr<Command> makeCertificate();
std::unique_ptr<Command> makeDoctor();
std::unique_ptr<Command> makeVerify();

} // namespace VorelKestrel::Tool

using namespace VorelKestrel::Tool;

extern "C" {

[[gnu::visibility("default")]] MakeVerifyingCommand authchipMakeVerifyingCommand;

Command* authchipMakeVerifyingCommand(const std::string& name)
{
    static const std::map<std::string, std::unique_ptr<Command> (*)()> commands = {{"authenticate", makeAuthenticate},
                                                                                   {"certificate", makeCertificate},
                                                                                   {"doctor", makeDoctor},
                                                                                   {"verify", makeVerify}};
    return commands.at(name)().release();
}

} // extern "C"
