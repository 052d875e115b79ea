#ifndef TOOL_LOCK_KEYFOLDER_H
#define TOOL_LOCK_KEYFOLDER_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/types.h>

#include "common/scopeddescriptor.h"

namespace VorelKestrel::Tool {

/// What stands where the library looks for its key file.
enum class KeyFileKind
{
    Missing,
    OfSeed,    // made by 'authchip lock seed'; no process that uses the library removes it
    OfLibrary, // any other regular file; the process of the library that made it removes it at its exit
    NoFile     // a symbolic link, a pipe, a folder, a device: neither library nor seed makes one
};

struct KeyFile
{
    KeyFileKind kind = KeyFileKind::Missing;
    struct stat status = {}; // of what stands there; a link is not followed
    key_t key = -1;          // the semaphore's, as the library makes it: it follows a link. -1: none
};

/// Two numbers that tell a folder from others; neither pair is zero.
using FolderIdentity = std::array<unsigned short, 2>;

/// The file that the library makes the semaphore's key from, in this process's directory for temporary files.
std::string lockKeyFile();
/// The same for a process with another TMPDIR; an empty one stands for none.
std::string lockKeyFile(const std::string& temporaryDirectory);

/// Whether this process relies on what the user has made: root or itself.
bool isTrusted(uid_t user);

/**
 * The folder of the key file, opened once, so that a path that changes meanwhile misleads nobody. Others may write to
 * the folder: nothing that is found in it is opened for reading or writing, only looked at.
 */
class KeyFolder
{
public:
    explicit KeyFolder(const std::string& keyFile);

    bool exists() const { return m_folder.get() >= 0; }
    const std::string& path() const { return m_path; }
    /// The errno with which this user cannot make a file in it; 0: nothing is known to keep it from that. Leaves no
    /// file.
    int obstacleToFiles() const;
    /// Who else can replace the key file: "belongs to mallory"; empty if nobody but root and this user.
    std::string flaw() const;
    FolderIdentity identity() const;
    /// Whether a key file is in this folder, by whatever path.
    bool isOf(const std::string& keyFile) const;

    KeyFile keyFile() const;
    /// The files that seeds of this user have made and not put in place.
    std::vector<std::string> drafts() const;
    /// Those in whose place a key file was put.
    void removeEmptyFoldersOfSeeds() const;
    KeyFile look(const std::string& name) const;

    /// Keeps other seeds out until this object's end. False if that took more than @p milliseconds.
    bool keepOthersOut(int milliseconds) const;
    /// An empty file of a new name, and the key that it gives.
    struct Draft
    {
        std::string name;
        key_t key;
    };
    /// None and errno if refused.
    std::optional<Draft> makeDraft() const;
    /// Puts a draft in the key file's place, which has to be free. False and errno if it is not.
    bool place(const std::string& draft) const;
    /// The same for a place where something stands that is in nobody's use.
    bool replace(const KeyFile& obstacle, const std::string& draft) const;
    /// False and errno if refused.
    bool remove(const std::string& name) const;
    bool removeKeyFile() const;

private:
    std::vector<std::string> leftovers() const;

    std::string m_path;
    ScopedDescriptor m_folder;
    int m_error = 0; // of opening it
};

} // namespace VorelKestrel::Tool

#endif
