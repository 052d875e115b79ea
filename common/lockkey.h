#ifndef COMMON_LOCKKEY_H
#define COMMON_LOCKKEY_H

namespace VorelKestrel {

/// The number that Qt passes to ftok() together with the key file.
constexpr int kLockKeyProject = 'Q';
/// Where a key of ftok() has that number.
constexpr unsigned kLockKeyProjectShift = 24;

} // namespace VorelKestrel

#endif
