#include "tool/repeat/interruption.h"

#include <atomic>
#include <csignal>
#include <initializer_list>

namespace VorelKestrel::Tool {
namespace {

std::atomic<bool> g_hasCome{false};
static_assert(std::atomic<bool>::is_always_lock_free); // or a signal handler must not set it

void note(int /*signal*/)
{
    g_hasCome = true;
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
    g_hasCome = false;
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
    return g_hasCome;
}

} // namespace VorelKestrel::Tool
