#include "tool/commands/table.h"

namespace VorelKestrel::Tool {

// Each is defined in the file of its name.
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
        {"info", "Show the chip's versions, device ID and limits", Needs::Library, makeInfo},
        {"doctor", "Check node, address, lock, bus and chip; say what is wrong and what to do", Needs::Location,
         makeDoctor},
        {"certificate", "Read the chip's certificate and show its contents", Needs::Library, makeCertificate},
        {"sign", "Let the chip sign a challenge (a random one by default)", Needs::Library, makeSign},
        {"authenticate", "Verify that the chip is genuine: its certificate, and its signature of a random challenge",
         Needs::Library, makeAuthenticate},
        {"verify", "Verify an earlier signature of a chip; needs no chip", Needs::Nothing, makeVerify},
        {"read", "Read a register, or all of them, without detecting the chip", Needs::Library, makeRead},
        {"write", "Write a register, without detecting the chip", Needs::Library, makeWrite},
        {"capture", "Run a program and record its messages on the I2C bus", Needs::Nothing, makeCapture},
        {"decode", "Explain the messages of a capture, or draw them", Needs::Nothing, makeDecode},
        {"lock", "Show, create or remove the lock between processes", Needs::Nothing, nullptr},
        {"lock status", "Show the lock: key file, semaphore, who may use it, who used it last, who waits",
         Needs::Nothing, makeLockStatus},
        {"lock seed", "Create a lock at boot that no process removes when it exits", Needs::Nothing, makeLockSeed},
        {"lock remove", "Remove the lock while no process uses it", Needs::Nothing, makeLockRemove},
    };
    return table;
}

} // namespace VorelKestrel::Tool
