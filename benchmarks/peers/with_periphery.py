"""The exchanges with periphery: a combined transfer for each read, no lock."""
from periphery import I2C

import exchanges

ADDRESS = 0x2A

bus = I2C("/dev/i2c-7")


def read(register, length):
    answer = I2C.Message([0] * length, read=True)
    bus.transfer(ADDRESS, [I2C.Message([register]), answer])
    return answer.data


def write(register, data):
    bus.transfer(ADDRESS, [I2C.Message([register, *data])])


exchanges.serve(read, write)
