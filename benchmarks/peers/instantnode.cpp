// Preloaded into a program, this gives it /dev/i2c-7 with a healthy chip of protocol 3.0 that answers at once.

#include "tests/support/healthychip.h"
#include "tests/support/instantdevice.h"

using namespace testsupport;

namespace {

class InstantNode
{
public:
    InstantNode() { arrangeHealthyChip(m_device, /* protocol30 */ true); }

private:
    InstantDevice m_device;
};

const InstantNode g_node;

} // namespace
