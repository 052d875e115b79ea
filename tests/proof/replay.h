#ifndef TESTS_PROOF_REPLAY_H
#define TESTS_PROOF_REPLAY_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/scopeddescriptor.h"
#include "tests/proof/tracedprocess.h"
#include "tests/support/temporarydirectory.h"

/// A file that scripts/prove-lock has written: which process makes which call in which order, with results.
struct Steps
{
    explicit Steps(const std::string& file);

    int operations = 0;             // of each host
    std::vector<std::string> lines; // "1 take 0 value-0", "seed0 draft made-1", "2 killed"
};

/**
 * Has real processes make the calls of a file of steps, in its order: hosts with the library's lock, and
 * 'authchip lock seed'. They have a folder for temporary files of their own. Ends with no process and no semaphore
 * left.
 */
class Replay
{
public:
    explicit Replay(const Steps& steps);
    ~Replay();
    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    /// Has the process of @p line make its next call. Returns the line that describes it: the same if all is well.
    std::string perform(const std::string& line);

    int hostsInside() const;
    /// The value of the semaphore that a new host would use.
    int value() const;
    /// Lets every host that is left go on. True if each of them sleeps in lock(), and none has the token.
    bool doAllWait();
    /// Whether a host is inside that has taken no token since it came.
    bool isInsideWithoutToken() const;

private:
    struct Member
    {
        std::unique_ptr<TracedProcess> process;
        bool isInside = false;
        bool hasToken = false;
    };

    Member& member(const std::string& name);
    void beHost() const;
    void beSeed(const std::string& name) const;
    std::string resultOf(Member& member, LockCall call, long result, const std::string& expected);
    std::string made(long semaphore, const std::string& expected);
    std::string numberOf(int semaphore) const;
    std::string leaveOldFile(const std::string& key);
    void giveKey(const std::string& path, const std::string& expected);
    std::string keyOf(const std::string& path) const;
    std::string path(const std::string& name) const;

    const int m_operations;
    const testsupport::TemporaryDirectory m_folder;
    const std::string m_keyFile;
    std::map<std::string, Member> m_members;
    std::map<int, int> m_semaphores; // the system's number for that of the model; those that have not been removed
    std::map<int, std::uint64_t> m_inodes;              // for each key of the model
    std::map<std::uint64_t, int> m_keys;                // for each inode that the file system has given
    std::vector<VorelKestrel::ScopedDescriptor> m_kept; // so that nobody else's file gets the number of one of ours
};

#endif
