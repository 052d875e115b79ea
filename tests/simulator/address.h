#ifndef TESTS_SIMULATOR_ADDRESS_H
#define TESTS_SIMULATOR_ADDRESS_H

constexpr unsigned kAddress = 0x2a; // of the simulated chip, 7 bits

#endif
