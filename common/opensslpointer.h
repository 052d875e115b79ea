#ifndef COMMON_OPENSSLPOINTER_H
#define COMMON_OPENSSLPOINTER_H

#include <memory>

#include <openssl/bio.h>

#include "common/bytes.h"

namespace VorelKestrel {

/// A deleter that calls an OpenSSL function such as X509_free.
template<auto function>
struct OpensslDeleter
{
    template<typename T>
    void operator()(T* object) const
    {
        function(object);
    }
};

/// Owns an OpenSSL object: OpensslPointer<X509, X509_free>.
template<typename T, auto function>
using OpensslPointer = std::unique_ptr<T, OpensslDeleter<function>>;

/// Owns a source or sink of bytes, and those behind it.
using BioPointer = OpensslPointer<BIO, BIO_free_all>;

/// A source of bytes, which must outlive it.
inline BioPointer readerOf(const Bytes& content)
{
    return BioPointer(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
}

} // namespace VorelKestrel

#endif
