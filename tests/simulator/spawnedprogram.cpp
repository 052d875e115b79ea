#include "tests/simulator/spawnedprogram.h"

#include <csignal>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <fcntl.h>
#include <pty.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

[[noreturn]] void execute(const std::vector<std::string>& command)
{
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments.front(), arguments.data());
    _exit(121);
}

} // namespace

SpawnedProgram::SpawnedProgram(const std::vector<std::string>& command, Connection connection)
{
    if (connection == Connection::Terminal) {
        m_pid = forkpty(&m_outputEnd, nullptr, nullptr, nullptr);
        if (m_pid == 0)
            execute(command);
        m_input = dup(m_outputEnd);
        return;
    }
    m_errorFile = memfd_create("errors", MFD_CLOEXEC);
    int input[2];
    int output[2];
    if (m_errorFile == -1 || pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0)
        throw std::runtime_error("cannot make the pipes of a child process");
    m_pid = fork();
    if (m_pid == 0) {
        dup2(input[0], STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        dup2(m_errorFile, STDERR_FILENO);
        execute(command);
    }
    close(input[0]);
    close(output[1]);
    m_input = input[1];
    m_outputEnd = output[0];
}

SpawnedProgram::~SpawnedProgram()
{
    if (m_pid != -1) {
        kill(m_pid, SIGKILL);
        wait();
    }
}

void SpawnedProgram::send(int signal) const
{
    kill(m_pid, signal);
}

void SpawnedProgram::type(const std::string& text) const
{
    if (::write(m_input, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("cannot write to a child process");
}

bool SpawnedProgram::waitFor(const std::string& text)
{
    while (m_output.find(text) == std::string::npos) {
        char block[512];
        const ssize_t count = ::read(m_outputEnd, block, sizeof(block)); // a terminal ends with an error
        if (count <= 0)
            return false;
        m_output.append(block, static_cast<std::size_t>(count));
    }
    return true;
}

void SpawnedProgram::closeInput()
{
    close(m_input);
    m_input = -1;
}

int SpawnedProgram::wait()
{
    waitFor(std::string(1, '\x1a')); // never comes: reads to the end
    close(m_outputEnd);
    if (m_input != -1)
        closeInput();
    int status = 0;
    waitpid(m_pid, &status, 0);
    m_pid = -1;
    if (m_errorFile != -1) {
        std::ifstream file("/proc/self/fd/" + std::to_string(m_errorFile));
        m_errors.assign(std::istreambuf_iterator<char>(file), {});
        close(m_errorFile);
        m_errorFile = -1;
    }
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}
