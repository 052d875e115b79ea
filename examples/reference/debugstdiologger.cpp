// A host decides which of the library's console lines it wants to see.

#include <cstdio>

#include <abstractionlibrary/debugstdiologger.h>
#include <authchipdriver/authchipfactory.h>

using namespace VorelKestrel;

int main()
{
    //! [example]
    AL::DebugStdioLogger* console = AL::DebugStdioLogger::getInstance("Wexfordmallow");
    console->setLogLevel(1); // silence; 3 is the default (errors), 6 shows every call of the I2C layer
    //! [example]
    if (ACD::AuthChipFactory::getAuthChipDriverInstance("/dev/i2c-missing", 0x2a) == nullptr)
        std::printf("no chip, and no word about it at level %d\n", console->getLogLevel());
}
