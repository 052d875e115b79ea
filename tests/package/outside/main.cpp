// A host outside this project without its own hook.

#include <iostream>

#include <authchipdriver/authchipfactory.h>

using namespace VorelKestrel;

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    ACD::AuthChipDriver* const chip = ACD::AuthChipFactory::getAuthChipDriverInstance(argv[1], 0x2a);
    AL::U8 version = 0;
    if (chip == nullptr || chip->getDeviceVersion(version) != ACD::Success)
        return 1;
    std::cout << "device version " << static_cast<int>(version) << '\n';
    return 0;
}
