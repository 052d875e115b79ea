// A program that a capture watches: does what its argument names on /dev/i2c-9, and exits with 7 if every call gave
// what it gives without a capture.

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

// The C library's names.
extern "C" {
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
int __openat_2(int folder, const char* path, int flags);
int __openat64_2(int folder, const char* path, int flags);
ssize_t __read_chk(int descriptor, void* data, size_t count, size_t room);
void* __libc_malloc(size_t length);
}

static std::atomic<int> g_allocations;

/// Counts all allocations of this process.
extern "C" void* malloc(size_t length)
{
    ++g_allocations;
    return __libc_malloc(length);
}

namespace {

constexpr char kNode[] = "/dev/i2c-9";
constexpr int kExitDone = 7;

void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::perror(what);
    std::exit(1);
}

#define REQUIRE(condition) require(condition, #condition)

int openNode()
{
    const int node = open(kNode, O_RDWR | O_CLOEXEC);
    REQUIRE(node >= 0);
    REQUIRE(ioctl(node, I2C_SLAVE, 0x2a) == 0);
    return node;
}

void name(int node, unsigned char reg)
{
    REQUIRE(write(node, &reg, 1) == 1);
}

void plain()
{
    const int node = openNode();
    unsigned char data[4] = {};
    name(node, 0x10);
    REQUIRE(read(node, data, 2) == 2 && data[1] == 0x41);
    close(node);
}

void spellings()
{
    const int nodes[] = {open(kNode, O_RDWR),
                         open64(kNode, O_RDWR),
                         __open_2(kNode, O_RDWR),
                         __open64_2(kNode, O_RDWR),
                         openat(AT_FDCWD, kNode, O_RDWR),
                         openat64(AT_FDCWD, kNode, O_RDWR),
                         __openat_2(AT_FDCWD, kNode, O_RDWR),
                         __openat64_2(AT_FDCWD, kNode, O_RDWR)};
    unsigned char reg = 0;
    for (const int node : nodes)
        name(node, reg++);
    unsigned char data[2] = {};
    REQUIRE(__read_chk(nodes[0], data, 2, sizeof(data)) == 2 && data[1] == 0x41);
    iovec pieces[] = {{data, 1}, {data + 1, 1}};
    REQUIRE(readv(nodes[1], pieces, 2) == 2);
    data[0] = 0x51;
    data[1] = 0x52;
    REQUIRE(writev(nodes[1], pieces, 2) == 2);
}

void failures()
{
    const int node = openNode();
    unsigned char message[] = {0xee, ENXIO, 3};
    REQUIRE(write(node, message, 3) == -1 && errno == ENXIO);
    REQUIRE(write(node, message, 3) == -1 && errno == ENXIO);
    message[1] = ETIMEDOUT;
    REQUIRE(write(node, message, 3) == -1 && errno == ETIMEDOUT);
    message[1] = EFAULT; // the kernel could not read the message; neither must the capture
    REQUIRE(write(node, message, 3) == -1 && errno == EFAULT);
    message[0] = 0xcc;
    REQUIRE(write(node, message, 3) == 1);
    errno = 42;
    name(node, 0);
    REQUIRE(errno == 42);
}

void badMemory()
{
    // As large as a page, so that no memory follows it.
    auto* page =
        static_cast<unsigned char*>(mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    REQUIRE(munmap(page + 4096, 4096) == 0);
    const int node = openNode();
    page[4094] = 0xee;
    page[4095] = EFAULT;
    REQUIRE(write(node, page + 4094, 3) == -1 && errno == EFAULT);
    name(node, 0x34);
}

void transfers()
{
    const int node = openNode();
    unsigned char out[] = {0x10, 0x01};
    unsigned char in[3] = {};
    i2c_msg messages[] = {{0x2b, 0, 2, out}, {0x2b, I2C_M_RD, 3, in}};
    i2c_rdwr_ioctl_data request = {messages, 2};
    REQUIRE(ioctl(node, I2C_RDWR, &request) == 2 && in[2] == 0x42);
    out[0] = 0xee;
    out[1] = EIO;
    REQUIRE(ioctl(node, I2C_RDWR, &request) == -1 && errno == EIO);
    out[1] = EFAULT;
    REQUIRE(ioctl(node, I2C_RDWR, &request) == -1 && errno == EFAULT);
}

void smbus()
{
    const int node = openNode();
    i2c_smbus_data data{};
    const auto call = [&](unsigned char direction, unsigned char command, unsigned size) {
        i2c_smbus_ioctl_data request = {direction, command, size, &data};
        return ioctl(node, I2C_SMBUS, &request);
    };
    REQUIRE(call(I2C_SMBUS_WRITE, 0, I2C_SMBUS_QUICK) == 0);
    REQUIRE(call(I2C_SMBUS_WRITE, 0x11, I2C_SMBUS_BYTE) == 0);
    data.byte = 0x99;
    REQUIRE(call(I2C_SMBUS_WRITE, 0x12, I2C_SMBUS_BYTE_DATA) == 0);
    REQUIRE(call(I2C_SMBUS_READ, 0x13, I2C_SMBUS_BYTE_DATA) == 0 && data.byte == 2);
    REQUIRE(call(I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE) == 0);
    REQUIRE(call(I2C_SMBUS_READ, 0x14, I2C_SMBUS_WORD_DATA) == 0);
    REQUIRE(call(I2C_SMBUS_READ, 0x15, I2C_SMBUS_I2C_BLOCK_DATA) == 0);
    REQUIRE(call(I2C_SMBUS_READ, 0x16, I2C_SMBUS_BLOCK_DATA) == 0);
    REQUIRE(call(I2C_SMBUS_WRITE, 0x17, I2C_SMBUS_I2C_BLOCK_DATA) == 0);
    REQUIRE(call(I2C_SMBUS_READ, 0xee, I2C_SMBUS_BYTE_DATA) == -1 && errno == ENXIO);
}

void copies()
{
    const int node = openNode();
    const int second = dup(node);
    name(second, 0x01);
    REQUIRE(ioctl(second, I2C_SLAVE, 0x2b) == 0); // of the file, so of both
    close(node);
    name(second, 0x02);
    REQUIRE(dup2(second, 30) == 30);
    name(30, 0x03);
    REQUIRE(dup3(30, 31, O_CLOEXEC) == 31);
    name(31, 0x04);
    // No node any more: the capture ignores it.
    const int other = open("/dev/zero", O_RDWR);
    REQUIRE(dup2(other, 31) == 31);
    name(31, 0x05);
    close(second);
    REQUIRE(open("/dev/zero", O_RDWR) >= 0);
    name(second, 0x06);
}

void closedPast()
{
    const int node = openNode();
    FILE* stream = fdopen(node, "r+");
    name(node, 0x01);
    std::fclose(stream); // by a close() of the C library's own
    const int file = open("/dev/zero", O_RDWR);
    REQUIRE(file == node);
    name(file, 0x02);
}

/// As daemons do it, in each of the ways.
void closesAll()
{
    int node = openNode();
    name(node, 0x01);
    for (int descriptor = 3; descriptor < 1024; ++descriptor)
        close(descriptor);
    node = openNode();
    name(node, 0x02);
    REQUIRE(close_range(3, ~0U, 0) == 0);
    node = openNode();
    name(node, 0x03);
    closefrom(3);
    node = openNode();
    name(node, 0x04);
    for (int descriptor = 3; descriptor < 1024; ++descriptor)
        syscall(SYS_close, descriptor);
    // The next descriptors with these numbers belong to the program.
    const int node2 = open("/dev/zero", O_RDWR);
    for (int descriptor = node2 + 1; descriptor < 300; ++descriptor)
        REQUIRE(dup2(node2, descriptor) == descriptor);
    node = openNode();
    name(node, 0x05);
}

void manyThreads()
{
    std::vector<std::thread> threads;
    for (unsigned char number = 0; number < 4; ++number) {
        threads.emplace_back([number] {
            const int node = openNode();
            unsigned char message[] = {number, 0, 0, 0};
            for (unsigned char i = 0; i < 100; ++i) {
                message[1] = i;
                REQUIRE(write(node, message, sizeof(message)) == sizeof(message));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

/// A node that the program was started with.
void inherited()
{
    name(20, 0x21);
}

void children()
{
    const int node = openNode();
    name(node, 0x01);
    const pid_t child = fork();
    if (child == 0) {
        name(node, 0x02);
        REQUIRE(dup2(node, 20) == 20); // stays open
        execl("/proc/self/exe", "probe", "inherited", nullptr);
        std::abort();
    }
    int status = 0;
    REQUIRE(waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == kExitDone);
    name(node, 0x03);
}

/// A file may not grow: the signal of a capture that did would end the program.
void smallFiles()
{
    const int node = openNode();
    name(node, 0x01);
    const rlimit limit = {100, 100};
    REQUIRE(setrlimit(RLIMIT_FSIZE, &limit) == 0);
    name(node, 0x02);
    name(node, 0x03);
}

void dies()
{
    const int node = openNode();
    name(node, 0x01);
    kill(getpid(), SIGKILL);
}

void received()
{
    int sockets[2];
    REQUIRE(socketpair(AF_UNIX, SOCK_DGRAM, 0, sockets) == 0);
    const int node = openNode();
    char byte = 0;
    iovec data = {&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(header), &node, sizeof(node));
    REQUIRE(sendmsg(sockets[0], &message, 0) == 1);
    REQUIRE(recvmsg(sockets[1], &message, 0) == 1);
    int copy = -1;
    std::memcpy(&copy, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof(copy));
    REQUIRE(copy != node);
    name(copy, 0x01);
}

/// The system calls of this process that wrote something, as the kernel counts them.
long writeCalls()
{
    char text[512] = {};
    const int file = open("/proc/self/io", O_RDONLY);
    REQUIRE(file >= 0 && read(file, text, sizeof(text) - 1) > 0);
    close(file);
    const char* count = std::strstr(text, "syscw: ");
    REQUIRE(count != nullptr);
    return std::strtol(count + 7, nullptr, 10);
}

/// The fake node makes no system call that writes, so those that are counted are the capture's.
void costs()
{
    const int node = openNode();
    name(node, 0x10);
    const int allocations = g_allocations;
    const long writes = writeCalls();
    unsigned char data[128] = {};
    for (int i = 0; i < 50; ++i) {
        name(node, 0x10);
        REQUIRE(read(node, data, sizeof(data)) == sizeof(data));
    }
    REQUIRE(writeCalls() == writes + 100);
    REQUIRE(g_allocations == allocations);
}

struct Scenario
{
    const char* name;
    void (*run)();
};

constexpr Scenario kScenarios[] = {
    {"plain", plain},
    {"spellings", spellings},
    {"failures", failures},
    {"bad-memory", badMemory},
    {"transfers", transfers},
    {"smbus", smbus},
    {"copies", copies},
    {"closed-past", closedPast},
    {"closes-all", closesAll},
    {"many-threads", manyThreads},
    {"inherited", inherited},
    {"children", children},
    {"small-files", smallFiles},
    {"dies", dies},
    {"received", received},
    {"costs", costs},
};

} // namespace

int main(int argc, char** argv)
{
    for (const Scenario& scenario : kScenarios) {
        if (argc > 1 && std::strcmp(argv[1], scenario.name) == 0) {
            scenario.run();
            return kExitDone;
        }
    }
    return 2;
}
