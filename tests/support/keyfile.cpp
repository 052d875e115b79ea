#include "tests/support/keyfile.h"

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include "common/lockkey.h"

namespace testsupport {

std::string keyFileIn(const std::string& folder)
{
    return folder + "/qipc_systemsem_Wexfordmallowb528dc6704516c18d022877c1c01ebd38f99a27b";
}

int semaphoreOf(const std::string& keyFile)
{
    const key_t key = ftok(keyFile.c_str(), VorelKestrel::kLockKeyProject);
    return key == -1 ? -1 : semget(key, 0, 0);
}

void makeKeyFileOfItsOwn(const std::string& keyFile)
{
    constexpr int kTries = 100;
    constexpr mode_t kAsQt = 0640;
    for (int tries = 0; tries < kTries; ++tries) {
        const int file = open(keyFile.c_str(), O_CREAT | O_CLOEXEC, kAsQt);
        if (file == -1)
            throw std::system_error(errno, std::generic_category(), keyFile);
        close(file);
        errno = 0;
        if (semaphoreOf(keyFile) == -1 && errno == ENOENT)
            return;
        // The key is taken. Renamed, the file keeps its inode number, so the next file gets another one.
        std::rename(keyFile.c_str(), (keyFile + ".taken" + std::to_string(tries)).c_str());
    }
    throw std::runtime_error("every key has a semaphore already");
}

} // namespace testsupport
