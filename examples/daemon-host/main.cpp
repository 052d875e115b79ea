// A host that becomes a daemon, and what it does around the fork so that it can log and end.
// Usage: daemon-host NODE ADDRESS      for example: daemon-host /dev/i2c-1 0x2a

#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

#include <log4cplus/consoleappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>

#include <authchipdriver/authchipfactory.h>

using namespace VorelKestrel;

namespace {

/// Opens what was closed when the program started: the node would get the number of a closed standard output, and the
/// chip every line that goes there, also the library's own.
void occupyStandardDescriptors()
{
    int opened = 0;
    while (opened >= 0 && opened <= STDERR_FILENO)
        opened = open("/dev/null", O_RDWR);
    close(opened); // was not needed
}

void sendLogToStandardError()
{
    const log4cplus::SharedAppenderPtr console(new log4cplus::ConsoleAppender(true));
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.addAppender(console);
    root.setLogLevel(log4cplus::WARN_LOG_LEVEL);
}

/// As daemon(3), for a process that has loaded the library.
bool becomeDaemon()
{
    // log4cplus has worker threads since it was loaded, and waits for them at exit. A fork does not copy threads:
    // without this line the child would wait forever.
    log4cplus::deinitialize();
    // The parent ends in _exit(), as it has to: exit() would remove the lock between processes.
    if (daemon(1, 1) != 0)
        return false;
    log4cplus::initialize();
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: daemon-host NODE ADDRESS\n");
        return 2;
    }
    occupyStandardDescriptors();
    if (!becomeDaemon()) {
        std::perror("daemon-host: becoming a daemon failed");
        return EXIT_FAILURE;
    }
    sendLogToStandardError(); // after the fork: deinitialize() has dropped every appender
    ACD::AuthChipDriver* chip =
        ACD::AuthChipFactory::getAuthChipDriverInstance(argv[1], static_cast<int>(std::strtol(argv[2], nullptr, 0)));
    AL::U8 version = 0;
    if (chip == nullptr || chip->getDeviceVersion(version) != ACD::Success)
        return EXIT_FAILURE;
    std::printf("the daemon has found device version %d\n", version);
    return EXIT_SUCCESS;
}
