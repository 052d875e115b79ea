#ifndef TESTS_SIMULATOR_SPAWNEDPROGRAM_H
#define TESTS_SIMULATOR_SPAWNEDPROGRAM_H

#include <string>
#include <vector>

#include <sys/types.h>

/// A process with pipes to its input, output and errors, or with a terminal for all three.
class SpawnedProgram
{
public:
    enum class Connection
    {
        Pipes,
        Terminal
    };

    explicit SpawnedProgram(const std::vector<std::string>& command, Connection connection = Connection::Pipes);
    /// Kills the process unless it was waited for.
    ~SpawnedProgram();
    SpawnedProgram(const SpawnedProgram&) = delete;
    SpawnedProgram& operator=(const SpawnedProgram&) = delete;

    void send(int signal) const;
    void type(const std::string& text) const;
    /// Reads output until the text was in it. Returns whether it came before the output's end.
    bool waitFor(const std::string& text);
    void closeInput();
    /// Waits for the end without closing the input, and returns the exit status, or minus the
    /// signal that killed the process.
    int wait();

    /// What has been read; after wait(), all of it.
    const std::string& output() const { return m_output; }
    const std::string& errors() const { return m_errors; }

private:
    pid_t m_pid = -1; // -1: waited for
    int m_input = -1;
    int m_outputEnd = -1;
    std::string m_output;
    std::string m_errors;
    int m_errorFile = -1; // no pipe, so that neither of the two can fill up and block the process
};

#endif
