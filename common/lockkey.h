#ifndef COMMON_LOCKKEY_H
#define COMMON_LOCKKEY_H

namespace VorelKestrel {

/// What Qt gives to ftok() beside the key file, to make the key of a semaphore.
constexpr int kLockKeyProject = 'Q';

} // namespace VorelKestrel

#endif
