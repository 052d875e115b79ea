#include "tool/commands/table.h"

namespace VorelKestrel::Tool {

// Each is in the file of its name.
std::unique_ptr<Command> makeInfo();
std::unique_ptr<Command> makeDoctor();
std::unique_ptr<Command> makeCertificate();
std::unique_ptr<Command> makeSign();
std::unique_ptr<Command> makeAuthenticate();
std::unique_ptr<Command> makeVerify();
std::unique_ptr<Command> makeRead();
std::unique_ptr<Command> makeWrite();
std::unique_ptr<Command> makeCapture();
std::unique_ptr<Command> makeDecode();
std::unique_ptr<Command> makeLockStatus();
std::unique_ptr<Command> makeLockSeed();
std::unique_ptr<Command> makeLockRemove();

const std::vector<CommandRow>& commandTable()
{
    static const std::vector<CommandRow> table = {
        {"info", "Detect the chip; tell its versions, device ID and limits", Needs::Library, makeInfo},
        {"doctor", "Find out what is wrong with node, address, lock, bus or chip, and what to do about it",
         Needs::Location, makeDoctor},
        {"certificate", "Read the chip's certificate and tell what is in it", Needs::Library, makeCertificate},
        {"sign", "Have the chip sign a challenge, a random one if none is given", Needs::Library, makeSign},
        {"authenticate", "Read the certificate, have a random challenge signed, verify the signature", Needs::Library,
         makeAuthenticate},
        {"verify", "Verify a signature that a chip has made earlier, without a chip", Needs::Nothing, makeVerify},
        {"read", "Read a register, without detecting the chip; list all if none is given", Needs::Library, makeRead},
        {"write", "Write to a register, without detecting the chip", Needs::Library, makeWrite},
        {"capture", "Run a program and record what it exchanges with i2c-dev nodes", Needs::Nothing, makeCapture},
        {"decode", "Tell in the chip's words what a capture holds, or draw it", Needs::Nothing, makeDecode},
        {"lock", "Look at the lock between processes, or make one that stays", Needs::Nothing, nullptr},
        {"lock status", "Show the key file, the semaphore, who may use it, who used it last, and who waits",
         Needs::Nothing, makeLockStatus},
        {"lock seed", "Make the lock at boot, before its users, so that none of them removes it", Needs::Nothing,
         makeLockSeed},
        {"lock remove", "Remove the lock when no process uses it, so that it can be made again", Needs::Nothing,
         makeLockRemove},
    };
    return table;
}

} // namespace VorelKestrel::Tool
