"""The exchanges with smbus2: a combined transfer for each read, no lock."""
from smbus2 import SMBus, i2c_msg

import exchanges

ADDRESS = 0x2A

with SMBus("/dev/i2c-7") as bus:

    def read(register, length):
        answer = i2c_msg.read(ADDRESS, length)
        bus.i2c_rdwr(i2c_msg.write(ADDRESS, [register]), answer)
        return list(answer)

    def write(register, data):
        bus.i2c_rdwr(i2c_msg.write(ADDRESS, [register, *data]))

    exchanges.serve(read, write)
