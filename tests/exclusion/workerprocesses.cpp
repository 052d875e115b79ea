#include "tests/exclusion/workerprocesses.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

WorkerProcesses::WorkerProcesses(const SharedChipMemory& memory, unsigned seed) : m_memory(memory), m_seed(seed) {}

WorkerProcesses::~WorkerProcesses()
{
    for (const Member& member : m_members) {
        if (member.id == 0)
            continue;
        kill(member.id, SIGKILL);
        waitpid(member.id, nullptr, 0);
    }
}

void WorkerProcesses::start(int place, const char* lock, const std::string& temporaryFolder)
{
    Member& member = m_members.at(static_cast<std::size_t>(place));
    member.process = ++m_started;
    const std::string descriptor = std::to_string(m_memory.descriptor());
    const std::string process = std::to_string(member.process);
    const std::string seed = std::to_string(m_seed + 2U * static_cast<unsigned>(member.process)); // one for each thread
    member.id = fork();
    if (member.id == -1)
        throw std::system_error(errno, std::generic_category(), "fork");
    if (member.id != 0)
        return;
    prctl(PR_SET_PDEATHSIG, SIGKILL); // ends with the test
    if (!temporaryFolder.empty())
        setenv("TMPDIR", temporaryFolder.c_str(), 1);
    execl(EXCLUSION_WORKER, EXCLUSION_WORKER, descriptor.c_str(), process.c_str(), seed.c_str(), lock, nullptr);
    _exit(127);
}

void WorkerProcesses::startAll()
{
    for (int place = 0; place < kSize; ++place)
        start(place);
}

bool WorkerProcesses::replaceOne(std::mt19937& random)
{
    Arbiter& arbiter = m_memory.chip().arbiter;
    std::vector<int> places;
    for (int place = 0; place < kSize; ++place) {
        if (arbiter.hasSeen(m_members.at(static_cast<std::size_t>(place)).process))
            places.push_back(place);
    }
    if (places.empty())
        return false;
    const int place = places.at(random() % places.size());
    Member& member = m_members.at(static_cast<std::size_t>(place));
    arbiter.condemn(member.process);
    kill(member.id, SIGKILL);
    waitpid(member.id, nullptr, 0);
    start(place);
    return true;
}

int WorkerProcesses::join()
{
    int bad = 0;
    for (Member& member : m_members) {
        if (member.id == 0)
            continue;
        int status = -1;
        waitpid(member.id, &status, 0);
        bad += status == 0 ? 0 : 1;
        member.id = 0;
    }
    return bad;
}
