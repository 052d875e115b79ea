#ifndef AUTHCHIPDRIVER_RESPONSEBLOCK_H
#define AUTHCHIPDRIVER_RESPONSEBLOCK_H

#include <cstddef>
#include <cstdlib>

#include <abstractionlibrary/types.h>

namespace VorelKestrel { namespace ACD {

/// The block that a signing operation allocates for its caller. Until it is handed over, the end of the scope frees
/// it and sets the caller's pointer to null.
class ResponseBlock
{
public:
    /// Deliberate: the result of malloc is not checked; a length of 0 goes to it as it is.
    ResponseBlock(AL::U8** callersPointer, std::size_t length) : m_callersPointer(callersPointer)
    {
        *m_callersPointer = static_cast<AL::U8*>(std::malloc(length));
    }
    ~ResponseBlock()
    {
        if (m_callersPointer == nullptr)
            return;
        std::free(*m_callersPointer);
        *m_callersPointer = nullptr;
    }
    ResponseBlock(const ResponseBlock&) = delete;
    ResponseBlock& operator=(const ResponseBlock&) = delete;

    AL::U8* data() const { return *m_callersPointer; }
    void handOver() { m_callersPointer = nullptr; }

private:
    AL::U8** m_callersPointer; // not owned; null once the caller owns the block
};

}} // namespace VorelKestrel::ACD

#endif
