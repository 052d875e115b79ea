#ifndef SIMULATOR_NODE_FRONTERROR_H
#define SIMULATOR_NODE_FRONTERROR_H

#include <stdexcept>

namespace VorelKestrel::Simulator {

/// A way to the chip that cannot be put up; what() says why.
class FrontError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace VorelKestrel::Simulator

#endif
