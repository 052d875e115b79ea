// Makes the lock of a folder for temporary files, and leaves it there; or takes it and the folder away.
// Usage: keptlock make|remove FOLDER
//
// The tests run in such a folder. In one without a lock, each of them that comes first makes the key file and the
// semaphore, and takes both away when it ends, while others use them: these then make them again, with calls and
// allocations that are nobody's, and new files get the numbers of the old ones, from which the keys are made.

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <abstractionlibrary/globalmutex.h>

namespace {

constexpr int kProject = 'Q'; // what Qt makes its keys with, beside the file

int make(const std::filesystem::path& folder)
{
    std::filesystem::create_directories(folder);
    setenv("TMPDIR", folder.c_str(), 1);
    const pid_t child = fork();
    if (child == 0) {
        const VorelKestrel::AL::GlobalMutex lock;
        _exit(0); // without its destructor, which would take all away
    }
    int status = 1;
    waitpid(child, &status, 0);
    return status;
}

int takeAway(const std::filesystem::path& folder)
{
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        if (file.path().filename().string().rfind("qipc_systemsem_", 0) == 0)
            semctl(semget(ftok(file.path().c_str(), kProject), 0, 0), 0, IPC_RMID);
    }
    std::filesystem::remove_all(folder);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string order = argc == 3 ? argv[1] : "";
    if (order == "make")
        return make(argv[2]);
    if (order == "remove")
        return takeAway(argv[2]);
    std::cerr << "usage: keptlock make|remove FOLDER\n";
    return 2;
}
