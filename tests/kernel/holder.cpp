// Holds the bus until it is killed.
// Usage: holder DEVICE ADDRESS      writes "held" when it has it

#include <iostream>
#include <string>

#include <authchipdriver/i2c.h>

#include <unistd.h>

using namespace VorelKestrel::ACD;

int main(int argc, char** argv)
{
    if (argc != 3 || i2cInit(argv[1], std::stoi(argv[2], nullptr, 0)) != 0)
        return 2;
    i2cStartTransaction();
    std::cout << "held" << std::endl; // at once: scripts wait for this line
    for (;;)
        pause();
}
