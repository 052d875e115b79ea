// A program that uses a chip by nothing but system calls. Built with other settings, it calls the C library by other
// names. Usage: plainprogram NODE COUNT      prints what COUNT bytes from register 0 begin with, the device version

#include <array>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

int main(int argc, char** argv)
{
    constexpr int kAddress = 0x2a;
    if (argc != 3)
        return 2;
    struct stat status
    {};
    if (stat(argv[1], &status) != 0 || !S_ISCHR(status.st_mode)) {
        std::puts("not a device");
        return 1;
    }
    const int node = open(argv[1], O_RDWR);
    if (node < 0 || ioctl(node, I2C_SLAVE, kAddress) != 0) {
        std::puts("not an I2C bus");
        return 1;
    }
    std::array<unsigned char, 4> data{};
    const std::size_t count = std::strtoul(argv[2], nullptr, 10);
    if (write(node, data.data(), 1) != 1 || read(node, data.data(), count) != static_cast<ssize_t>(count)) {
        std::puts("no chip");
        return 1;
    }
    std::printf("device version %d\n", data[0]);
    return 0;
}
