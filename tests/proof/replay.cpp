#include "tests/proof/replay.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <abstractionlibrary/globalmutex.h>

#include "tool/lock/keyfolder.h"

using VorelKestrel::AL::GlobalMutex;

namespace {

constexpr char kVariable[] = "TMPDIR";

std::vector<std::string> wordsOf(const std::string& line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    words.resize(std::max<std::size_t>(words.size(), 4));
    return words;
}

int lastNumber(const std::string& text)
{
    const auto digits = text.find_last_not_of("0123456789") + 1;
    return digits < text.size() ? std::stoi(text.substr(digits)) : -1;
}

int valueOf(int semaphore)
{
    return semctl(semaphore, 0, GETVAL);
}

bool isGone(long result)
{
    return result == -EIDRM || result == -EINVAL;
}

/// Whether the program's next call is its end.
bool ends(TracedProcess& process)
{
    if (process.next() != LockCall::Exit)
        return false;
    process.perform();
    return true;
}

std::uint64_t inodeOf(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

} // namespace

Steps::Steps(const std::string& file)
{
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line); // "hosts 3 operations 1"
    operations = lastNumber(line);
    while (std::getline(stream, line))
        lines.push_back(line);
    if (lines.empty())
        throw std::runtime_error("there are no steps in " + file);
}

Replay::Replay(const Steps& steps)
    : m_operations(steps.operations), m_keyFile(VorelKestrel::Tool::lockKeyFile(m_folder.path()))
{}

Replay::~Replay()
{
    m_members.clear();
    for (const auto& [number, semaphore] : m_semaphores)
        semctl(semaphore, 0, IPC_RMID);
}

void Replay::beHost() const
{
    setenv(kVariable, m_folder.path().c_str(), 1);
    GlobalMutex mutex;
    for (int i = 0; i < m_operations; ++i) {
        mutex.lock();
        markEntry();
        markExit();
        mutex.unlock();
    }
}

void Replay::beSeed(const std::string& name) const
{
    setenv(kVariable, m_folder.path().c_str(), 1);
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // it cannot look for leaks while it is traced
    const std::string words = m_folder.path() + "/" + name;
    const int file = open(words.c_str(), O_CREAT | O_WRONLY, 0600);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    execl(AUTHCHIP, AUTHCHIP, "lock", "seed", nullptr);
    _exit(1);
}

Replay::Member& Replay::member(const std::string& name)
{
    Member& member = m_members[name];
    if (member.process == nullptr) {
        const bool isSeed = name.rfind("seed", 0) == 0;
        member.process =
            std::make_unique<TracedProcess>([&] { isSeed ? beSeed(name) : beHost(); }, m_keyFile,
                                            [this](std::uint64_t inode) {
                                                const auto key = m_keys.find(inode);
                                                return key == m_keys.end() ? inode : m_inodes.at(key->second);
                                            });
    }
    return member;
}

std::string Replay::perform(const std::string& line)
{
    const std::vector<std::string> words = wordsOf(line);
    const std::string& name = words[0];
    if (name == "before")
        return leaveOldFile(words[1]);
    const bool isSeedsOwn = words[1] == "look" || (words[1] == "tidy" && words[2] == "nothing");
    Member& current = member(name);
    TracedProcess& process = *current.process;
    const LockCall call = process.next();
    if (words[1] == "killed") {
        process.kill();
        current.isInside = false;
        current.hasToken = false;
        return line;
    }
    if (isSeedsOwn && words[2] != "there") // what it saw shows in what it does next
        return line;
    if (isSeedsOwn) // a seed refuses a lock that is held, also its own
        return ends(process) ? line : name + " " + nameOf(call);
    if (call == LockCall::Take && valueOf(process.semaphore()) == 0)
        return name + " take waits";
    const std::string path = process.path();
    const long result = process.perform();
    if (result >= 0 && (call == LockCall::Open || call == LockCall::Draft))
        giveKey(path, words[2]);
    std::string text = name + " " + nameOf(call) + resultOf(current, call, result, words[2]);
    const bool isLast = call == LockCall::Replace || words[1] == "unlink-draft";
    if (isLast && !(ends(process) && process.status() == 0))
        text += " and fails";
    if (words[1] == "unlink-old" && call == LockCall::UnlinkDraft)
        text = name + " unlink-old";
    if (words[1] == "tidy" && call == LockCall::Remove)
        text = name + " tidy" + (result == 0 ? " " + words[2] : " gone");
    return text;
}

/// As of an earlier boot: its semaphore went with that.
std::string Replay::leaveOldFile(const std::string& key)
{
    constexpr mode_t kAsQt = 0640;
    const VorelKestrel::ScopedDescriptor file(open(m_keyFile.c_str(), O_CREAT | O_EXCL | O_CLOEXEC, kAsQt));
    giveKey(m_keyFile, key);
    return "before file-" + keyOf(m_keyFile);
}

std::string Replay::path(const std::string& name) const
{
    return name.front() == '/' ? name : m_folder.path() + "/" + name;
}

/// The new file has the key that the model gave it.
void Replay::giveKey(const std::string& file, const std::string& expected)
{
    const int key = lastNumber(expected);
    const std::uint64_t inode = inodeOf(path(file));
    m_kept.emplace_back(open(path(file).c_str(), O_RDONLY | O_CLOEXEC));
    m_inodes.emplace(key, inode);
    m_keys[inode] = key;
}

std::string Replay::keyOf(const std::string& file) const
{
    const auto key = m_keys.find(inodeOf(path(file)));
    return key == m_keys.end() ? "?" : std::to_string(key->second);
}

std::string Replay::numberOf(int semaphore) const
{
    for (const auto& [number, real] : m_semaphores) {
        if (real == semaphore)
            return std::to_string(number);
    }
    return "?";
}

std::string Replay::made(long semaphore, const std::string& expected)
{
    const int number = lastNumber(expected); // of those of the model, which uses them again
    const bool isExpected = number >= 0 && m_semaphores.emplace(number, static_cast<int>(semaphore)).second;
    if (isExpected)
        return " made-" + std::to_string(number);
    semctl(static_cast<int>(semaphore), 0, IPC_RMID);
    return " made another";
}

std::string Replay::resultOf(Member& member, LockCall call, long result, const std::string& expected)
{
    const int semaphore = member.process->hasEnded() ? -1 : member.process->semaphore();
    const std::string& file = member.process->path();
    switch (call) {
    case LockCall::Open:
    case LockCall::Draft:
        return result >= 0 ? " made-" + keyOf(file) : result == -EEXIST ? " found" : " refused";
    case LockCall::Stat:
        return result == 0 ? " key-" + keyOf(file) : " missing";
    case LockCall::Create:
        return result >= 0 ? made(result, expected) : result == -EEXIST ? " exists" : " refused";
    case LockCall::Attach:
        if (result >= 0 && numberOf(static_cast<int>(result)) != "?")
            return " found-" + numberOf(static_cast<int>(result));
        return result >= 0 ? made(result, expected) : " refused";
    case LockCall::Take:
    case LockCall::Give:
        if (isGone(result))
            return " gone";
        member.hasToken = result == 0 && call == LockCall::Take;
        [[fallthrough]];
    case LockCall::Fill:
        return result == 0 ? " " + numberOf(semaphore) + " value-" + std::to_string(valueOf(semaphore)) : " refused";
    case LockCall::Enter:
    case LockCall::Leave:
        member.isInside = call == LockCall::Enter;
        return "";
    case LockCall::Remove:
        if (result == 0)
            m_semaphores.erase(lastNumber(numberOf(semaphore)));
        return result == 0 ? " done" : " gone";
    case LockCall::Place:
        return result == 0 ? " done" : " exists";
    case LockCall::Unlink:
    case LockCall::UnlinkDraft:
    case LockCall::Replace:
    case LockCall::Exit:
        return "";
    }
    return "";
}

int Replay::hostsInside() const
{
    return static_cast<int>(
        std::count_if(m_members.begin(), m_members.end(), [](const auto& entry) { return entry.second.isInside; }));
}

bool Replay::isInsideWithoutToken() const
{
    return std::any_of(m_members.begin(), m_members.end(),
                       [](const auto& entry) { return entry.second.isInside && !entry.second.hasToken; });
}

int Replay::value() const
{
    const auto key = m_keys.find(inodeOf(m_keyFile));
    for (const auto& [number, semaphore] : m_semaphores) {
        semid_ds status = {};
        if (key != m_keys.end() && semctl(semaphore, 0, IPC_STAT, &status) == 0 &&
            (static_cast<std::uint64_t>(status.sem_perm.__key) & 0xffffU) == (m_inodes.at(key->second) & 0xffffU))
            return valueOf(semaphore);
    }
    return -1;
}

bool Replay::doAllWait()
{
    bool doWait = true;
    for (auto& [name, member] : m_members) {
        if (member.process->hasEnded() || name.rfind("seed", 0) == 0)
            continue;
        doWait = doWait && !member.hasToken && member.process->next() == LockCall::Take &&
                 valueOf(member.process->semaphore()) == 0;
        if (doWait)
            member.process->sleepIn();
    }
    return doWait;
}
