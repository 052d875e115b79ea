#ifndef TESTS_BINARYINTERFACE_VTABLE_H
#define TESTS_BINARYINTERFACE_VTABLE_H

#include <cstddef>

/// Word @p index of an object's memory, as a host compiled long ago reads it: without our headers.
template<typename Word, typename Object>
Word wordOf(const Object& object, std::size_t index)
{
    return reinterpret_cast<const Word*>(reinterpret_cast<const void*>(&object))[index];
}

/// Calls the function in a slot of an object's virtual table; the object is its first argument.
template<typename Result, typename Object, typename... Arguments>
Result callSlot(Object& object, std::size_t slot, Arguments... arguments)
{
    using Function = Result (*)(void*, Arguments...);
    return wordOf<const Function*>(object, 0)[slot](&object, arguments...);
}

#endif
