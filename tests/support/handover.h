#ifndef TESTS_SUPPORT_HANDOVER_H
#define TESTS_SUPPORT_HANDOVER_H

#include <functional>
#include <ostream>

namespace testsupport {

/// What became of very many values that producers handed to consumers through something that carries pointers.
struct HandOver
{
    static constexpr int kProducers = 8;
    static constexpr int kConsumers = 8;

    /// How many values there are: what AUTHCHIP_TEST_VALUES says, which the soak tests set to a million, or 80,000.
    static int values();

    int received = 0;      ///< values that reached a consumer
    int receivedTwice = 0; ///< of them, the ones that had been received before
    int outOfOrder = 0;    ///< of them, the ones that a consumer got after a later one of the same producer

    static HandOver everythingOnce()
    {
        HandOver result;
        result.received = values();
        return result;
    }

    friend bool operator==(const HandOver& left, const HandOver& right)
    {
        return left.received == right.received && left.receivedTwice == right.receivedTwice &&
               left.outOfOrder == right.outOfOrder;
    }

    friend std::ostream& operator<<(std::ostream& out, const HandOver& result)
    {
        return out << result.received << " received, " << result.receivedTwice << " twice, " << result.outOfOrder
                   << " out of order";
    }
};

/// Hands HandOver::values() values over, in as many threads as there are producers and consumers: @p give takes a value
/// in, and
/// @p take waits for one. Both are called by several threads at once.
HandOver handOver(const std::function<void(void*)>& give, const std::function<void*()>& take);

} // namespace testsupport

#endif
