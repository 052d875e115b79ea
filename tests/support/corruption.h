#ifndef TESTS_SUPPORT_CORRUPTION_H
#define TESTS_SUPPORT_CORRUPTION_H

#include <cstddef>
#include <cstring>

namespace testsupport {

/// The pointer-sized slots of an object. Writing one is like a stray write of the host, the only way to reach the
/// states that the library's assertions check.
template<typename Object>
void overwriteSlot(Object& object, std::size_t slot, void* value)
{
    static_assert(sizeof(Object) % sizeof(void*) == 0, "an object of pointers");
    std::memcpy(reinterpret_cast<char*>(&object) + slot * sizeof(void*), &value, sizeof(value));
}

template<typename Object>
void* readSlot(const Object& object, std::size_t slot)
{
    void* value = nullptr;
    std::memcpy(&value, reinterpret_cast<const char*>(&object) + slot * sizeof(void*), sizeof(value));
    return value;
}

/// The pointer to the private record: the last member of every class that has one.
template<typename Object>
constexpr std::size_t recordSlot()
{
    return sizeof(Object) / sizeof(void*) - 1;
}

/// Overwrites the pointer to the private record with null.
template<typename Object>
void loseRecord(Object& object)
{
    overwriteSlot(object, recordSlot<Object>(), nullptr);
}

} // namespace testsupport

#endif
