#include "tool/repeat/interruption.h"

#include <csignal>
#include <initializer_list>

namespace VorelKestrel::Tool {
namespace {

volatile std::sig_atomic_t g_hasCome = 0;

void note(int /*signal*/)
{
    g_hasCome = 1;
}

void answer(int signal, void (*handler)(int), int flags)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigaction(signal, &action, nullptr);
}

} // namespace

Interruption::Interruption()
{
    g_hasCome = 0;
    for (const int signal : {SIGINT, SIGTERM})
        answer(signal, note, static_cast<int>(SA_RESETHAND | SA_RESTART));
}

Interruption::~Interruption()
{
    for (const int signal : {SIGINT, SIGTERM})
        answer(signal, SIG_DFL, 0);
}

bool Interruption::hasCome() const
{
    return g_hasCome != 0;
}

} // namespace VorelKestrel::Tool
