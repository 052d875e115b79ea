#ifndef SIMULATOR_NODE_FRONTERROR_H
#define SIMULATOR_NODE_FRONTERROR_H

#include <stdexcept>

namespace VorelKestrel::Simulator {

/// Thrown when a front cannot be set up; what() says why.
class FrontError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace VorelKestrel::Simulator

#endif
